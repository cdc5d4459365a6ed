// In place of report.cpp where the tool is built without the page.
#include <stdexcept>

#include "tools/report/report.h"

namespace korvane::tool {

struct Report::State {};

Report::Report(const ResultHeader& /*header*/, EmbeddedAudio /*audio*/) {}

Report::~Report() = default;

bool Report::available() { return false; }

void Report::add_input(const int16_t* /*samples*/, int64_t /*n*/) {}

void Report::add(const Frame& /*frame*/) {}

void Report::add_cleaned(const int16_t* /*samples*/, int64_t /*n*/) {}

std::string Report::page(const StreamTotals& /*totals*/,
                         const std::vector<segments::Segment>& /*list*/) {
    throw std::runtime_error("this korvane-vad was built without reports (KORVANE_REPORT=OFF)");
}

std::string Report::missing_audio() const { return ""; }

}  // namespace korvane::tool
