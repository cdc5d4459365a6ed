/** Results as labels and captions: formats whose fields are places and a name. */
#ifndef KORVANE_TOOLS_RESULTS_LABEL_RESULTS_H
#define KORVANE_TOOLS_RESULTS_LABEL_RESULTS_H

#include <string>
#include <utility>
#include <vector>

#include "tools/results/result_writer.h"

namespace korvane::tool {

/** The segments of all channels in the order of their begin. */
std::vector<std::pair<const ResultHeader*, const segments::Segment*>> in_order(
    const std::vector<Judged>& judged);

std::string audacity_result(const std::vector<Judged>& judged);
std::string rttm_result(const std::vector<Judged>& judged);
/** A comment, which RTTM's readers skip. */
std::string rttm_remark(const std::string& name, const std::string& remark);
std::string srt_result(const std::vector<Judged>& judged);
std::string vtt_result(const std::vector<Judged>& judged);
/** A tier for each channel. */
std::string textgrid_result(const std::vector<Judged>& judged);

}  // namespace korvane::tool

#endif
