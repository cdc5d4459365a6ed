// The kit finds what differs: in a table that was changed on purpose.
#include "kit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace {

std::string report;

void add_to_report(const char* text) { report += text; }

class ConformanceKit : public testing::Test {
  protected:
    ConformanceKit() : rows_(conformance_table.rows, conformance_table.rows + 6) {}

    /** Whether all is well; leaves what was printed in `report`. */
    bool run(int32_t step) {
        const ConformanceTable table = {rows_.data(), static_cast<int32_t>(rows_.size()),
                                        digest_.c_str()};
        report.clear();
        return conformance_run(&table, step, add_to_report) != 0;
    }

    /** The digest at the end of the report. */
    static std::string digest() { return report.substr(report.size() - 65, 64); }

    std::vector<ConformanceRow> rows_;
    std::string digest_ = conformance_table.digest;
};

TEST_F(ConformanceKit, NamesTheFirstRowThatDiffers) {
    const std::string right = rows_[2].digest;
    for (const std::size_t i : {2U, 4U}) {
        char& last = rows_[i].digest[63];
        last = last == '0' ? '1' : '0';
    }
    EXPECT_FALSE(run(1));
    EXPECT_EQ(
        report,
        "row 3 differs, the first to do so: forward, rate 0, level 0, mode 1, pieces of 288 of "
        "57600 samples\n  expected " +
            std::string(rows_[2].digest) + "\n  got      " + right + "\n6 rows, 2 differ; digest " +
            digest() + "\n");
    EXPECT_TRUE(run(3));  // rows 1 and 4
    EXPECT_EQ(report, "2 rows, 0 differ; digest " + digest() + "\n");
}

TEST_F(ConformanceKit, MissesRows) {
    EXPECT_FALSE(run(1));
    EXPECT_EQ(report, "the table is not the one that its digest is of\n6 rows, 0 differ; digest " +
                          digest() + "\n");
    digest_ = digest();
    EXPECT_TRUE(run(1));
    std::swap(rows_[0], rows_[1]);
    EXPECT_FALSE(run(1));
}

TEST_F(ConformanceKit, HasRoomForEveryNumber) {
    rows_.resize(1);
    rows_[0] = {INT32_MAX, kCallDecision, INT32_MAX, INT32_MAX, INT32_MAX, INT32_MAX, 0, {}, {}};
    EXPECT_FALSE(run(1));
}

}  // namespace
