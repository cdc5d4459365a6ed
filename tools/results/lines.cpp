#include "tools/results/lines.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace korvane::tool {

namespace {

bool is_control(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }

}  // namespace

std::string printable(const std::string& name) {
    constexpr std::string_view kHex = "0123456789abcdef";
    std::string text;
    for (const char c : name) {
        if (is_control(c)) {
            text.append("\\x");
            text += kHex[static_cast<std::size_t>(c) / 16];
            text += kHex[static_cast<std::size_t>(c) % 16];
        } else {
            text += c;
        }
    }
    return text;
}

std::string boolean(bool value) { return value ? "true" : "false"; }

std::string csv_field(const std::string& text) {
    if (text.find_first_of("\",\r\n") == std::string::npos) {
        return text;
    }
    std::string quoted = "\"";
    for (const char c : text) {
        quoted.append(c == '"' ? 2 : 1, c);
    }
    return quoted + "\"";
}

std::string columns(const std::vector<std::string>& fields) {
    constexpr std::size_t kWidth = 12;
    std::string line;
    for (const std::string& field : fields) {
        line.append(line.empty() ? "" : " ");
        line.append(kWidth - std::min(kWidth, field.size()), ' ').append(field);
    }
    return line + "\n";
}

std::string comma_separated(const std::vector<std::string>& fields) {
    std::string line;
    for (const std::string& field : fields) {
        line.append(line.empty() ? "" : ",").append(field);
    }
    return line + "\n";
}

}  // namespace korvane::tool
