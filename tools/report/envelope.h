/** Lowest and highest values of a long row of numbers, in a bounded number of buckets. */
#ifndef KORVANE_TOOLS_REPORT_ENVELOPE_H
#define KORVANE_TOOLS_REPORT_ENVELOPE_H

#include <cstdint>
#include <vector>

namespace korvane::tool::report {

/**
 * Each bucket holds the lowest and the highest of as many values in a row. Buckets begin as single
 * values; whenever there are too many of them, neighbours become one. So short recordings keep
 * every sample, and hours take no more room than `limit` buckets. Nothing is lost but resolution:
 * a merged bucket is exactly the extremes of its values.
 */
class Envelope {
  public:
    /** @param limit  most buckets, even and at least 2 */
    explicit Envelope(int64_t limit);

    /** The next n values, each the extremes of `width` numbers that follow each other. */
    void add(const int16_t* numbers, int64_t n, int width);

    /** How many values are in a bucket; a power of two. The last bucket may hold fewer. */
    int64_t bucket() const { return bucket_; }
    int64_t count() const { return static_cast<int64_t>(low_.size()); }

    /** All the low values and then all the high ones, 16-bit little-endian. */
    std::vector<uint8_t> bytes() const;

  private:
    void halve();

    int64_t limit_;
    int64_t bucket_ = 1;
    int64_t filled_ = 0;  // values in the last bucket
    std::vector<int16_t> low_;
    std::vector<int16_t> high_;
};

}  // namespace korvane::tool::report

#endif
