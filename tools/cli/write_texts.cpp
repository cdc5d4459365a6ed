/** write_texts FOLDER: the manual page and the completions, when the tool is built. */
#include <cstdio>
#include <fstream>
#include <string>

#include "tools/cli/completions.h"
#include "tools/cli/help.h"

namespace {

bool write(const std::string& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary);
    file << text << std::flush;
    if (!file) {
        std::fprintf(stderr, "write_texts: cannot write %s\n", path.c_str());
    }
    return static_cast<bool>(file);
}

}  // namespace

int main(int argc, char** argv) {
    using namespace korvane::tool;
    if (argc != 2) {
        std::fputs("usage: write_texts FOLDER\n", stderr);
        return 2;
    }
    const std::string folder = std::string(argv[1]) + "/";
    const bool done = write(folder + "korvane-vad.1", manual_page()) &&
                      write(folder + "korvane-vad.bash", bash_completions()) &&
                      write(folder + "_korvane-vad", zsh_completions()) &&
                      write(folder + "korvane-vad.fish", fish_completions());
    return done ? 0 : 1;
}
