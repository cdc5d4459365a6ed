// Runs a detector from Debian's packages over recordings, as peers.mjs does:
//
//     native NAME RATE <LIST
//
// NAME is speexdsp or webrtc. A float32 for each 10 ms: 1 speech, 0 none.

#include <chrono>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "detectors.h"

namespace bench = korvane::bench;

int main(int argc, char** argv) {
    if (argc != 3) {
        return 2;
    }
    const std::string name = argv[1];
    const bench::Format format{std::stoi(argv[2]), 1};
    const auto length = static_cast<size_t>(format.frame_length());
    std::string from;
    std::string to;
    while (std::getline(std::getline(std::cin, from, '\t'), to)) {
        std::ifstream in(from, std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(in), {}};
        const auto* const samples = reinterpret_cast<const int16_t*>(bytes.data());
        const auto detector =
            name == "webrtc" ? bench::make_webrtc(format) : bench::make_speexdsp(format);
        std::vector<float> answers(bytes.size() / 2 / length);
        const auto begun = std::chrono::steady_clock::now();
        for (size_t i = 0; i < answers.size(); ++i) {
            answers[i] = detector->process(samples + i * length) ? 1.F : 0.F;
        }
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begun;
        std::cout << taken.count() << '\n';
        std::ofstream(to, std::ios::binary)
            .write(reinterpret_cast<const char*>(answers.data()),
                   static_cast<std::streamsize>(answers.size() * sizeof(float)));
    }
    return 0;
}
