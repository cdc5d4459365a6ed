/** Names for the pieces of a recording, from a pattern like {stem}_{index:04}.{ext}. */
#ifndef KORVANE_TOOLS_CLI_NAME_TEMPLATE_H
#define KORVANE_TOOLS_CLI_NAME_TEMPLATE_H

#include <cstdint>
#include <string>
#include <vector>

namespace korvane::tool {

struct PieceName {
    std::string stem;       ///< the recording's name without folder and extension
    std::string extension;  ///< without its dot
    int channel = 0;        ///< counted from 1
    int64_t index = 0;      ///< counted from 1
    int64_t start = 0;      ///< in samples
    int64_t end = 0;
    int rate = 1;
};

class NameTemplate {
  public:
    /**
     * Fields: {stem} {ext} {channel} {index} {start} {end}, the last two in seconds with three
     * decimals, and {start_samples} {end_samples}. All but stem and ext take a width, as in
     * {index:04}: at least so many characters, filled up with zeros at the front. {{ and }} are single
     * braces. Throws std::invalid_argument on anything else in braces, on an empty pattern and on a
     * slash.
     */
    explicit NameTemplate(const std::string& pattern);
    std::string fill(const PieceName& piece) const;
    bool names_channel() const;

  private:
    enum class Field {
        kText,
        kStem,
        kExt,
        kChannel,
        kIndex,
        kStart,
        kEnd,
        kStartSamples,
        kEndSamples
    };
    struct Part {
        Field field = Field::kText;
        std::string text;
        std::size_t width = 0;
    };
    static Part parse_field(const std::string& inside);
    std::vector<Part> parts_;
};

/** Name without folder and extension; of "-", "stdin". */
std::string stem_of(const std::string& path);
/** What follows the last dot of the name, if it has more than that. */
std::string extension_of_path(const std::string& path);

}  // namespace korvane::tool

#endif
