/** Writing whatever a descriptor is: a file, a pipe, a terminal. */
#ifndef KORVANE_TOOLS_FILES_WRITE_ALL_H
#define KORVANE_TOOLS_FILES_WRITE_ALL_H

#include <string_view>

namespace korvane::tool {

/** Writes all of it, whatever pieces and signals come in between. False, with errno set, where that
 * cannot be; some of it may be written then. */
[[nodiscard]] bool write_all(int descriptor, std::string_view bytes);

}  // namespace korvane::tool

#endif
