#include "tools/selftest.h"

#include <string>

#include "conformance/kit.h"
#include "tools/files/text_output.h"

namespace korvane::tool {

namespace {

std::string report;

void add_to_report(const char* text) { report += text; }

}  // namespace

int run_selftest(int every) {
    const int passed = conformance_run(&conformance_table, every, add_to_report);
    TextOutput output("");
    output.write(report);
    output.commit();
    return passed != 0 ? 0 : 1;
}

}  // namespace korvane::tool
