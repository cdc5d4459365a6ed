/** Lines of fields, for people and for spreadsheets. */
#ifndef KORVANE_TOOLS_RESULTS_LINES_H
#define KORVANE_TOOLS_RESULTS_LINES_H

#include <string>
#include <vector>

namespace korvane::tool {

/** For a line that people read: control characters as \\xHH. */
std::string printable(const std::string& name);

/** "true" or "false". */
std::string boolean(bool value);

/** As RFC 4180 quotes it, where it must. */
std::string csv_field(const std::string& text);

/** A line of columns, each at its right edge. */
std::string columns(const std::vector<std::string>& fields);

/** A line of fields that are already quoted. */
std::string comma_separated(const std::vector<std::string>& fields);

}  // namespace korvane::tool

#endif
