/** Results as JSON, whole or line by line; docs/results.schema.json describes them. */
#ifndef KORVANE_TOOLS_RESULTS_JSON_RESULTS_H
#define KORVANE_TOOLS_RESULTS_JSON_RESULTS_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "tools/results/result_writer.h"

namespace korvane::tool {

/** What was measured of a frame, by name. */
std::vector<std::pair<const char*, std::string>> measures(const ResultHeader& header,
                                                          const Frame& frame);

/** Objects, without what stands around them. */
std::string json_result(const Judged& judged);
std::string json_failure(const std::string& name, const std::string& error);

/** Lines of jsonl. */
std::string jsonl_headers(const std::vector<ResultHeader>& headers);
std::string jsonl_onset(const ResultHeader& header, const segments::Onset& onset,
                        const Frame& frame);
std::string jsonl_segment(const ResultHeader& header, int64_t index,
                          const segments::Segment& segment);
std::string jsonl_summary(const ResultHeader& header, const StreamTotals& totals,
                          int64_t segment_count);
std::string jsonl_frame(const ResultHeader& header, const Frame& frame);
/** The header with the totals, and the segments. */
std::string jsonl_result(const Judged& judged);
std::string jsonl_failure(const std::string& name, const std::string& error);

}  // namespace korvane::tool

#endif
