/** The library against the digests of the conformance table. */
#ifndef KORVANE_TOOLS_SELFTEST_H
#define KORVANE_TOOLS_SELFTEST_H

namespace korvane::tool {

/** Runs every so many-th row and prints how it went. Returns 0 where every row matches, else 1. */
int run_selftest(int every);

}  // namespace korvane::tool

#endif
