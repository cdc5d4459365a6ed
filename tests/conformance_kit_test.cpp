// The kit finds what differs: in a table that was changed on purpose.
#include "kit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

class ConformanceKit : public testing::Test {
  protected:
    ConformanceKit() : rows_(conformance_table.rows, conformance_table.rows + 6) {}

    void run(int32_t step) {
        const ConformanceTable table = {rows_.data(), static_cast<int32_t>(rows_.size()),
                                        digest_.c_str()};
        conformance_run(&table, step, &result_);
        char text[kConformanceReport];
        conformance_report(&result_, text);
        report_ = text;
    }

    std::vector<ConformanceRow> rows_;
    std::string digest_ = conformance_table.digest;
    ConformanceResult result_{};
    std::string report_;
};

TEST_F(ConformanceKit, NamesTheFirstRowThatDiffers) {
    const std::string right = rows_[2].digest;
    for (const std::size_t i : {2U, 4U}) {
        char& last = rows_[i].digest[63];
        last = last == '0' ? '1' : '0';
    }
    run(1);
    EXPECT_EQ(result_.passed, 0);
    EXPECT_EQ(result_.first, &rows_[2]);
    EXPECT_EQ(
        report_,
        "row 3 differs, the first to do so: forward, rate 0, level 0, mode 1, pieces of 288 of "
        "57600 samples\n  expected " +
            std::string(rows_[2].digest) + "\n  got      " + right + "\n6 rows, 2 differ; digest " +
            result_.digest + "\n");
    run(3);  // rows 1 and 4
    EXPECT_EQ(result_.passed, 1);
    EXPECT_EQ(report_, "2 rows, 0 differ; digest " + std::string(result_.digest) + "\n");
}

TEST_F(ConformanceKit, MissesRows) {
    run(1);
    EXPECT_EQ(result_.differing, 0);
    EXPECT_EQ(result_.passed, 0);
    EXPECT_EQ(report_, "the table is not the one that its digest is of\n6 rows, 0 differ; digest " +
                           std::string(result_.digest) + "\n");
    digest_ = result_.digest;
    run(1);
    EXPECT_EQ(result_.passed, 1);
    std::swap(rows_[0], rows_[1]);
    run(1);
    EXPECT_EQ(result_.passed, 0);
}

TEST_F(ConformanceKit, ReportsFitTheirBuffer) {
    // Every number as long as it gets.
    ConformanceRow& row = rows_[0];
    row.call = kCallDetector;
    for (int32_t* number :
         {&row.number, &row.rate, &row.level, &row.mode, &row.chunk, &row.samples}) {
        *number = 2147483647;
    }
    result_ = {2147483647, 2147483647, &row, {}, {}, 0};
    std::fill_n(result_.got, 64, 'f');
    std::fill_n(result_.digest, 64, 'f');
    std::vector<char> text(kConformanceReport, 'x');
    conformance_report(&result_, text.data());
    EXPECT_NE(std::string(text.data()).find("samples\n"), std::string::npos);
    EXPECT_EQ(text.back(), 'x');
}

}  // namespace
