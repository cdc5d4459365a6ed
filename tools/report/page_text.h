/** The page without its data: everything before and everything behind it. */
#ifndef KORVANE_TOOLS_REPORT_PAGE_TEXT_H
#define KORVANE_TOOLS_REPORT_PAGE_TEXT_H

#include <string_view>

namespace korvane::tool::report {

// Put together at build time by make_page.mjs.
extern const std::string_view kPageHead;
extern const std::string_view kPageTail;

}  // namespace korvane::tool::report

#endif
