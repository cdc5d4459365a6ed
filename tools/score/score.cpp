#include "tools/score/score.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "tools/cli/name_template.h"
#include "tools/files/failure.h"
#include "tools/files/text_output.h"
#include "tools/results/lines.h"
#include "tools/results/times.h"

namespace korvane::tool {

namespace {

enum Cover : std::size_t { kReference, kHypothesis, kCollar };
using Edge = std::tuple<int64_t, Cover, int>;  // where, of what, 1 begin or -1 end

void add_edges(std::vector<Edge>& edges, Cover cover, int64_t start, int64_t end, int64_t length) {
    start = std::clamp<int64_t>(start, 0, length);
    end = std::clamp<int64_t>(end, 0, length);
    if (start < end) {
        edges.emplace_back(start, cover, 1);
        edges.emplace_back(end, cover, -1);
    }
}

int64_t last_end(const Annotation& annotation) {
    int64_t last = 0;
    for (const Stretch& stretch : annotation.speech) {
        last = std::max(last, stretch.end);
    }
    return last;
}

/** As the files say, or else to the end of the last speech. */
int64_t length_of(const Annotation& reference, const Annotation& hypothesis) {
    if (reference.length || hypothesis.length) {
        return std::max(reference.length.value_or(0), hypothesis.length.value_or(0));
    }
    return std::max(last_end(reference), last_end(hypothesis));
}

double part(int64_t count, int64_t of) {
    return of > 0 ? static_cast<double>(count) / static_cast<double>(of) : 0;
}

std::size_t name_count(const std::vector<Annotation>& list) {
    std::set<std::string> names;
    for (const Annotation& each : list) {
        names.insert(each.name);
    }
    return names.size();
}

/** Whether both may mean the same recording: one of them may be named by its path. */
bool is_same_name(const std::string& one, const std::string& other) {
    return one == other || stem_of(one) == other || one == stem_of(other) ||
           stem_of(one) == stem_of(other);
}

/** The annotation of the same recording and channel; null where there is none. */
const Annotation* counterpart(const Annotation& of, const std::vector<Annotation>& list,
                              bool sole) {
    const Annotation* found = nullptr;
    for (const Annotation& each : list) {
        if (each.channel != of.channel || !(sole || is_same_name(each.name, of.name))) {
            continue;
        }
        if (each.name == of.name) {
            return &each;
        }
        if (found != nullptr) {
            throw Failure(of.name, "may be " + found->name + " or " + each.name);
        }
        found = &each;
    }
    return found;
}

std::string decimals(double value) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.4f", value);
    return text.data();
}

std::string line_of(ResultFormat format, const std::string& name, const std::string& channel,
                    const Score& score) {
    std::vector<std::string> fields;
    for (const int64_t time : {score.scored, score.speech, score.false_alarm, score.missed}) {
        fields.push_back(seconds(time, kMicro, kMilli));
    }
    fields.push_back(decimals(score.f1()));
    fields.push_back(decimals(score.detection_cost()));
    if (format == ResultFormat::kCsv) {
        fields.insert(fields.begin(), {csv_field(name), channel});
        return comma_separated(fields);
    }
    std::string line = columns(fields);
    line.pop_back();
    return line + "  " + printable(name) + (channel.empty() ? "" : ", channel " + channel) + "\n";
}

std::string heading(ResultFormat format) {
    return format == ResultFormat::kCsv
               ? "recording,channel,scored,speech,false_alarm,missed,f1,dcf\n"
               : columns({"scored", "speech", "false alarm", "missed", "F1", "DCF"});
}

}  // namespace

double Score::f1() const {
    const int64_t hits = speech - missed;
    const int64_t all = 2 * hits + false_alarm + missed;
    return all > 0 ? part(2 * hits, all) : 1;
}

double Score::detection_cost() const {
    return 0.75 * part(missed, speech) + 0.25 * part(false_alarm, scored - speech);
}

Score score_of(const Annotation& reference, const Annotation& hypothesis, int64_t collar) {
    const int64_t length = length_of(reference, hypothesis);
    std::vector<Edge> edges;
    for (const Stretch& stretch : reference.speech) {
        add_edges(edges, kReference, stretch.start, stretch.end, length);
        for (const int64_t edge : {stretch.start, stretch.end}) {
            add_edges(edges, kCollar, edge - collar, edge + collar, length);
        }
    }
    for (const Stretch& stretch : hypothesis.speech) {
        add_edges(edges, kHypothesis, stretch.start, stretch.end, length);
    }
    edges.emplace_back(length, kCollar, 0);
    std::sort(edges.begin(), edges.end());
    Score score;
    std::array<int, 3> covers{};
    int64_t from = 0;
    for (const auto& [at, cover, change] : edges) {
        if (covers[kCollar] == 0) {
            const int64_t time = at - from;
            const bool spoken = covers[kReference] > 0;
            const bool found = covers[kHypothesis] > 0;
            score.scored += time;
            score.speech += spoken ? time : 0;
            score.missed += spoken && !found ? time : 0;
            score.false_alarm += found && !spoken ? time : 0;
        }
        covers[cover] += change;
        from = at;
    }
    return score;
}

int run_score(const Options& options) {
    const std::string& reference_path = options.files[0];
    const std::string& hypothesis_path = options.files[1];
    const std::vector<Annotation> references = read_annotations(reference_path);
    const std::vector<Annotation> hypotheses = read_annotations(hypothesis_path);
    check_is_no_input(options.output, options.files);
    const bool sole = name_count(references) == 1 && name_count(hypotheses) == 1;
    const int64_t collar = options.collar.samples(kMicro);
    TextOutput output(options.output);
    output.write(heading(options.format));
    Score all;
    for (const Annotation& reference : references) {
        const Annotation* hypothesis = counterpart(reference, hypotheses, sole);
        if (hypothesis == nullptr) {
            std::fprintf(stderr,
                         "korvane-vad: %s: has no %s, channel %d: all of it counts as missed\n",
                         hypothesis_path.c_str(), reference.name.c_str(), reference.channel);
        }
        const Score score =
            score_of(reference, hypothesis != nullptr ? *hypothesis : Annotation{}, collar);
        output.write(
            line_of(options.format, reference.name, std::to_string(reference.channel), score));
        all.scored += score.scored;
        all.speech += score.speech;
        all.false_alarm += score.false_alarm;
        all.missed += score.missed;
    }
    for (const Annotation& hypothesis : hypotheses) {
        if (counterpart(hypothesis, references, sole) == nullptr) {
            std::fprintf(stderr, "korvane-vad: %s: has no %s, channel %d: it is left out\n",
                         reference_path.c_str(), hypothesis.name.c_str(), hypothesis.channel);
        }
    }
    output.write(line_of(options.format, "together", "", all));
    output.commit();
    return 0;
}

}  // namespace korvane::tool
