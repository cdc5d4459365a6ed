// Runs this library's streams over recordings:
//
//     accuracy_streams DECISION RATE <LIST
//
// DECISION is adaptive, fixed or detector; or cleaned: then the file gets the cleaned samples. Each line of LIST names a file of 16-bit mono samples and, behind a tab, a
// file to write: for each frame of 10 ms four doubles, the second at which it begins, speech or not, the score, and how
// many seconds of sound had been handed over when the answer came. Prints the seconds taken, one a line.

#include <chrono>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "korvane_stream.h"

namespace {

struct Answers {
    double rate;
    double handed_over;  // samples
    std::vector<double> rows;
};

void keep(void* user, const KorvaneStreamResult* result) {
    auto& answers = *static_cast<Answers*>(user);
    answers.rows.insert(
        answers.rows.end(),
        {static_cast<double>(result->position) / answers.rate, static_cast<double>(result->speech),
         static_cast<double>(result->score), answers.handed_over / answers.rate});
}

template <class T>
void write(std::ofstream& file, const std::vector<T>& values) {
    file.write(reinterpret_cast<const char*>(values.data()),
               static_cast<std::streamsize>(values.size() * sizeof(T)));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        return 2;
    }
    const std::string decision = argv[1];
    const int rate = std::stoi(argv[2]);
    const bool wants_cleaned = decision == "cleaned";
    const int32_t piece = rate / 100;
    std::string from;
    std::string to;
    while (std::getline(std::cin, from, '\t') && std::getline(std::cin, to)) {
        std::ifstream in(from, std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(in), {}};
        const auto* const samples = reinterpret_cast<const int16_t*>(bytes.data());
        const auto count = static_cast<int32_t>(bytes.size() / 2);
        Answers answers{static_cast<double>(rate), 0, {}};
        std::vector<int16_t> cleaned(wants_cleaned ? bytes.size() / 2 : 0);
        KorvaneStreamConfig config;
        korvane_stream_defaults(&config, rate, 1);
        config.decision = decision == "fixed"      ? KORVANE_DECISION_FIXED
                          : decision == "detector" ? KORVANE_DECISION_DETECTOR
                                                   : KORVANE_DECISION_ADAPTIVE;
        config.on_result = wants_cleaned ? nullptr : keep;
        config.user = &answers;
        KorvaneStream* const stream = korvane_stream_create(&config, nullptr);
        const auto begun = std::chrono::steady_clock::now();
        for (int32_t at = 0; at + piece <= count; at += piece) {
            answers.handed_over = at + piece;
            korvane_stream_process(stream, samples + at,
                                   wants_cleaned ? cleaned.data() + at : nullptr, piece);
        }
        korvane_stream_end(stream, nullptr);
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begun;
        korvane_stream_destroy(stream);
        std::cout << taken.count() << '\n';
        std::ofstream out(to, std::ios::binary);
        write(out, answers.rows);
        write(out, cleaned);
    }
    return 0;
}
