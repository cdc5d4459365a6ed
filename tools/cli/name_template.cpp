#include "tools/cli/name_template.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "tools/results/times.h"

namespace korvane::tool {

namespace {

constexpr std::size_t kMostDigits = 2;  // of a width

}  // namespace

NameTemplate::Part NameTemplate::parse_field(const std::string& inside) {
    static const std::array<std::pair<const char*, Field>, 8> fields = {
        {{"stem", Field::kStem},
         {"ext", Field::kExt},
         {"channel", Field::kChannel},
         {"index", Field::kIndex},
         {"start", Field::kStart},
         {"end", Field::kEnd},
         {"start_samples", Field::kStartSamples},
         {"end_samples", Field::kEndSamples}}};
    const std::size_t colon = inside.find(':');
    const std::string name = inside.substr(0, colon);
    Part part;
    for (const auto& [known, field] : fields) {
        if (name == known) {
            part.field = field;
        }
    }
    const bool numeric = part.field != Field::kStem && part.field != Field::kExt;
    const std::string width = colon == std::string::npos ? "0" : inside.substr(colon + 1);
    if (part.field == Field::kText || width.empty() || width.size() > kMostDigits ||
        width.find_first_not_of("0123456789") != std::string::npos ||
        (!numeric && colon != std::string::npos)) {
        throw std::invalid_argument(
            "{" + inside +
            "} is none of {stem} {ext} {channel} {index} {start} {end} {start_samples} "
            "{end_samples}, the numbers with or without a width as in {index:04}");
    }
    part.width = static_cast<std::size_t>(std::stoi(width));
    return part;
}

NameTemplate::NameTemplate(const std::string& pattern) {
    if (pattern.empty() || pattern.find('/') != std::string::npos) {
        throw std::invalid_argument("a name must not be empty and has no slash");
    }
    std::string text;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        const char c = pattern[i];
        const bool doubled = i + 1 < pattern.size() && pattern[i + 1] == c;
        if ((c == '{' || c == '}') && doubled) {
            text += c;
            ++i;
        } else if (c == '{') {
            const std::size_t close = pattern.find('}', i);
            if (close == std::string::npos) {
                throw std::invalid_argument("a { without its }");
            }
            parts_.push_back({Field::kText, text, 0});
            text.clear();
            parts_.push_back(parse_field(pattern.substr(i + 1, close - i - 1)));
            i = close;
        } else if (c == '}') {
            throw std::invalid_argument("a } without its {");
        } else {
            text += c;
        }
    }
    parts_.push_back({Field::kText, text, 0});
}

std::string NameTemplate::fill(const PieceName& piece) const {
    std::string name;
    for (const Part& part : parts_) {
        std::string text = part.text;
        switch (part.field) {
            case Field::kText:
                break;
            case Field::kStem:
                text = piece.stem;
                break;
            case Field::kExt:
                text = piece.extension;
                break;
            case Field::kChannel:
                text = std::to_string(piece.channel);
                break;
            case Field::kIndex:
                text = std::to_string(piece.index);
                break;
            case Field::kStart:
                text = seconds(piece.start, piece.rate, kMilli);
                break;
            case Field::kEnd:
                text = seconds(piece.end, piece.rate, kMilli);
                break;
            case Field::kStartSamples:
                text = std::to_string(piece.start);
                break;
            case Field::kEndSamples:
                text = std::to_string(piece.end);
                break;
        }
        name += (text.size() < part.width ? std::string(part.width - text.size(), '0') : "") + text;
    }
    return name;
}

bool NameTemplate::names_channel() const {
    return std::any_of(parts_.begin(), parts_.end(),
                       [](const Part& part) { return part.field == Field::kChannel; });
}

std::string stem_of(const std::string& path) {
    return path == "-" ? "stdin" : std::filesystem::path(path).stem().string();
}

std::string extension_of_path(const std::string& path) {
    const std::string extension = std::filesystem::path(path).extension().string();
    return extension.size() > 1 ? extension.substr(1) : "";
}

}  // namespace korvane::tool
