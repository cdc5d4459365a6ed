#include "tools/selftest.h"

#include "conformance/kit.h"
#include "tools/files/text_output.h"

namespace korvane::tool {

int run_selftest(int every) {
    ConformanceResult result;
    char report[kConformanceReport];
    conformance_run(&conformance_table, every, &result);
    conformance_report(&result, report);
    TextOutput output("");
    output.write(report);
    output.commit();
    return result.passed != 0 ? 0 : 1;
}

}  // namespace korvane::tool
