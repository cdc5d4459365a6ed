#include "tools/score/annotations.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "tools/audio/input_descriptor.h"
#include "tools/cli/name_template.h"
#include "tools/files/failure.h"

namespace korvane::tool {

namespace {

constexpr double kLongest = 1e9;  // seconds

struct Malformed : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/** Seconds as microseconds, to nearest. */
int64_t microseconds(double seconds) {
    if (!(seconds >= 0 && seconds <= kLongest)) {
        throw Malformed("a time is not from 0 to 1000000000 seconds");
    }
    return std::llround(seconds * 1e6);
}

int64_t time_in(const std::string& word) {
    double value = 0;
    const auto [stop, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (error != std::errc() || stop != word.data() + word.size()) {
        throw Malformed("'" + word + "' is no time");
    }
    return microseconds(value);
}

int channel_number(double value) {
    if (!(value >= 1 && value <= 65535 && value == std::floor(value))) {
        throw Malformed("a channel is not from 1 to 65535");
    }
    return static_cast<int>(value);
}

class Annotations {
  public:
    Annotation& of(const std::string& name, int channel) {
        // Most often it is the one of the line before.
        const auto found = std::find_if(list_.rbegin(), list_.rend(), [&](const Annotation& each) {
            return each.name == name && each.channel == channel;
        });
        return found != list_.rend()
                   ? *found
                   : list_.emplace_back(Annotation{.name = name, .channel = channel});
    }

    void add(const std::string& name, int channel, int64_t start, int64_t end) {
        if (end < start) {
            throw Malformed("an end lies before its start");
        }
        of(name, channel).speech.push_back({start, end});
    }

    std::vector<Annotation> take() { return std::move(list_); }
    bool empty() const { return list_.empty(); }

  private:
    std::vector<Annotation> list_;
};

/** As this tool writes a channel into a label; else 1. */
int channel_in(const std::string& label) {
    const std::string mark = "speech, channel ";
    int channel = 1;
    if (label.starts_with(mark)) {
        std::from_chars(label.data() + mark.size(), label.data() + label.size(), channel);
    }
    return channel_number(channel);
}

int hexadecimal(char c) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    return static_cast<int>(kDigits.find(c) < kDigits.size() ? kDigits.find(c) : 16);
}

/** Without the %HH that stand for what an RTTM field cannot hold. */
std::string decoded(const std::string& field) {
    std::string name;
    for (std::size_t i = 0; i < field.size(); ++i) {
        const int high = i + 2 < field.size() ? hexadecimal(field[i + 1]) : 16;
        const int low = i + 2 < field.size() ? hexadecimal(field[i + 2]) : 16;
        if (field[i] == '%' && high < 16 && low < 16) {
            name += static_cast<char>(16 * high + low);
            i += 2;
        } else {
            name += field[i];
        }
    }
    return name;
}

void read_rttm_line(const std::string& line, Annotations& annotations) {
    std::istringstream words(line);
    std::string type;
    std::string name;
    std::string start;
    std::string duration;
    int channel = 1;
    words >> type;
    if (type.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ-/_") != std::string::npos) {
        throw Malformed("'" + type + "' is no type of an RTTM line");
    }
    if (type != "SPEAKER") {
        return;
    }
    if (!(words >> name >> channel >> start >> duration)) {
        throw Malformed("a SPEAKER line needs a name, a channel, a start and a duration");
    }
    annotations.add(decoded(name), channel_number(channel), time_in(start),
                    time_in(start) + time_in(duration));
}

/** What this tool says of a recording without speech is no comment. */
void read_rttm_remark(const std::string& line, Annotations& annotations) {
    constexpr std::string_view kBegin = ";; ";
    constexpr std::string_view kEnd = ": no speech";
    if (line.starts_with(kBegin) && line.ends_with(kEnd)) {
        std::string name = line.substr(kBegin.size(), line.size() - kBegin.size() - kEnd.size());
        int channel = 1;
        if (const std::size_t at = name.rfind(": channel "); at != std::string::npos) {
            channel = channel_in("speech, " + name.substr(at + 2));
            name.resize(at);
        }
        annotations.of(stem_of(name), channel);
    }
}

void read_label(const std::string& line, const std::string& name, Annotations& annotations) {
    if (line.front() == '\\') {
        return;  // the frequencies of the label before
    }
    const std::size_t first = line.find('\t');
    const std::size_t second = line.find('\t', first == std::string::npos ? first : first + 1);
    if (first == std::string::npos) {
        throw Malformed("neither RTTM nor labels, a TextGrid or jsonl");
    }
    const std::string label = second == std::string::npos ? "" : line.substr(second + 1);
    annotations.add(name, channel_in(label), time_in(line.substr(0, first)),
                    time_in(line.substr(first + 1, second - first - 1)));
}

void read_json_line(const std::string& line, Annotations& annotations) {
    try {
        const nlohmann::json object = nlohmann::json::parse(line);
        const auto type = object.at("type").get<std::string>();
        if (type != "header" && type != "segment") {
            return;
        }
        const auto name = object.at("file").get<std::string>();
        const int channel = channel_number(object.value("channel", 1.0));
        if (type == "segment") {
            annotations.add(name, channel, microseconds(object.at("start").get<double>()),
                            microseconds(object.at("end").get<double>()));
            return;
        }
        Annotation& annotation = annotations.of(name, channel);
        if (object.contains("samples")) {
            annotation.length =
                microseconds(object.at("samples").get<double>() / object.at("rate").get<double>());
        }
    } catch (const nlohmann::json::exception&) {
        throw Malformed("not a line of korvane-vad's jsonl");
    }
}

/** Numbers, flags and quoted texts that stand alone; the words of the long form stand between them. */
std::vector<std::string> textgrid_tokens(const std::string& text) {
    std::vector<std::string> tokens;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '"') {
            std::string token = "\"";
            for (++i; i < text.size() && (text[i] != '"' || text[i + 1] == '"'); ++i) {
                token += text[i];
                i += text[i] == '"' ? 1U : 0U;
            }
            tokens.push_back(token);
        } else if (std::isspace(static_cast<unsigned char>(text[i])) == 0) {
            const std::size_t end = std::min(text.find_first_of(" \t\r\n", i), text.size());
            const bool number = std::isdigit(static_cast<unsigned char>(text[i])) != 0;
            if (number || text[i] == '<') {
                tokens.push_back(text.substr(i, end - i));
            }
            i = end;
        }
    }
    return tokens;
}

void read_textgrid(const std::string& text, const std::string& name, Annotations& annotations) {
    const std::vector<std::string> tokens = textgrid_tokens(text);
    std::size_t at = 2;  // behind the type and the class
    const auto next = [&]() -> const std::string& {
        if (at >= tokens.size()) {
            throw Malformed("the TextGrid ends too early");
        }
        return tokens[at++];
    };
    next();  // xmin
    const int64_t length = time_in(next());
    next();  // <exists>
    for (int64_t tiers = time_in(next()) / 1000000; tiers > 0; --tiers) {
        const bool is_interval = next() == "\"IntervalTier";
        const int channel = channel_in(next().substr(1));
        at += 2;
        if (is_interval) {
            annotations.of(name, channel).length = length;
        }
        for (int64_t count = time_in(next()) / 1000000; count > 0; --count) {
            const int64_t start = time_in(next());
            const int64_t end = is_interval ? time_in(next()) : start;
            if (next() != "\"" && is_interval) {
                annotations.add(name, channel, start, end);
            }
        }
    }
}

}  // namespace

std::vector<Annotation> read_annotations(const std::string& path) {
    const std::string text = text_of_file(path);
    const std::string name = stem_of(path);
    Annotations annotations;
    int64_t number = 0;
    bool rttm = false;
    try {
        if (text.substr(0, 100).find("ooTextFile") != std::string::npos) {
            read_textgrid(text, name, annotations);
            return annotations.take();
        }
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            ++number;
            line.erase(line.find_last_not_of("\r ") + 1);
            const bool letter =
                !line.empty() && std::isupper(static_cast<unsigned char>(line.front())) != 0;
            rttm = rttm || letter || line.starts_with(";;");
            if (line.empty()) {
                continue;
            }
            if (line.starts_with(";;")) {
                read_rttm_remark(line, annotations);
            } else if (line.front() == '{') {
                read_json_line(line, annotations);
            } else if (rttm) {
                read_rttm_line(line, annotations);
            } else {
                read_label(line, name, annotations);
            }
        }
    } catch (const Malformed& error) {
        throw Failure(path,
                      (number > 0 ? "line " + std::to_string(number) + ": " : "") + error.what());
    }
    if (annotations.empty() && !rttm) {
        annotations.of(name, 1);  // labels of a recording without speech
    }
    return annotations.take();
}

}  // namespace korvane::tool
