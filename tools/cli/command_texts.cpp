#include "tools/cli/options.h"

namespace korvane::tool {

const std::vector<CommandText>& command_texts() {
    static const std::vector<CommandText> texts = {
        {Command::kDetect,
         "detect",
         "[OPTION...] FILE...|-",
         "prints the segments of speech in recordings or in a stream",
         {{"korvane-vad interview.flac", "one line for each segment: start, end, duration"},
          {"korvane-vad detect -f srt --preset subtitles -o talk.srt talk.wav",
           "a subtitle file, captions of 7 seconds at most"},
          {"arecord -t raw -f S16_LE -r 16000 -c 1 | korvane-vad --raw s16le -r 16000 -f jsonl -",
           "a live stream, each event as it happens"},
          {"find archive -name '*.wav' -print0 | korvane-vad -j 4 --files-from - -0 -f csv "
           "--resume done.jsonl -o all.csv",
           "a whole archive; the same command again continues after an interruption"}},
         {"FILE is any sound file that libsndfile reads; - is a stream on standard input. From a "
          "stream, the formats text, jsonl and csv are written line by line, each line as soon as "
          "it is decided.",
          "Several recordings are read by processes of their own, -j at once. Results come in the "
          "order of the names. If a recording fails, that is reported, the others are still done, "
          "and the exit status is 1. A format that cannot hold several recordings needs -o DIR/ "
          "with a slash at its end: each recording gets a file there."}},
        {Command::kFrames,
         "frames",
         "[OPTION...] FILE|-",
         "prints one line for each frame: its place, the answer, the level",
         {{"korvane-vad frames interview.flac", "one line for each frame of 10 ms"},
          {"korvane-vad frames -f csv --frame 20ms -o frames.csv interview.flac",
           "for a spreadsheet, in frames of 20 ms"}},
         {"The level is that of the cleaned frame, in dB of full scale; of two channels the "
          "louder one counts. Then come the score and the level of the noise, -140 while it is not "
          "known. With --decision detector there are neither, and the level is what the suppressor "
          "leaves: 5 dB less below 25000 Hz."}},
        {Command::kClean,
         "clean",
         "[OPTION...] IN OUT",
         "writes the recording with its noise suppressed",
         {{"korvane-vad clean interview.flac quiet.flac",
           "the noise suppressed; as long as the original, and not shifted"},
          {"arecord -t raw -f S16_LE -r 16000 -c 1 | korvane-vad clean --raw s16le -r 16000 - - | "
           "aplay -t raw -f S16_LE -r 16000 -c 1",
           "a live stream"}},
         {"OUT has the format of IN, or the one that its extension names. It appears under its "
          "name only when it is whole, and may be IN itself. If OUT is -, samples of 16 bits, "
          "little-endian, without a header go to standard output."}},
        {Command::kSplit,
         "split",
         "[OPTION...] -o DIR FILE|-",
         "writes each segment of speech into a file of its own",
         {{"korvane-vad split interview.flac -o parts",
           "parts/interview_0001.flac, parts/interview_0002.flac ..."},
          {"korvane-vad split --pad-start 100ms --pad-end 100ms --template "
           "'{stem}_{start:08}-{end:08}.wav' interview.flac -o parts",
           "100 ms wider at both ends, named by their times, as WAV"}},
         {"The recording itself is cut, unless --cleaned is given. All files appear when all are "
          "whole; the same command again writes the same files."}},
        {Command::kReport,
         "report",
         "[OPTION...] -o PAGE.html FILE|-",
         "writes a page to look at and listen to",
         {{"korvane-vad report interview.flac -o interview.html",
           "waveform, level, segments, spectrogram, before and after"}},
         {"The page is complete in itself and needs no network."}},
        {Command::kScore,
         "score",
         "[OPTION...] REFERENCE HYPOTHESIS",
         "says how far two results are apart: false alarms, misses, F1 and DCF",
         {{"korvane-vad score by-hand.rttm found.rttm",
           "a line for each recording, and one for all"},
          {"korvane-vad score --collar 250ms labels.txt talk.jsonl",
           "labels of Audacity against jsonl, without 250 ms around their edges"}},
         {"Both are RTTM, labels of Audacity, TextGrid or jsonl, one as the other or not; every "
          "label counts as speech. Recordings are the same where their names are, without folders "
          "and "
          "extensions, or where each side has one alone. What TextGrid and jsonl say about the "
          "length counts; else a recording ends with its last speech.",
          "All but F1 and DCF are seconds. F1 is 2 hits / (2 hits + false alarms + misses), DCF "
          "0.75 misses / speech + 0.25 false alarms / what is no speech."}},
        {Command::kSelftest,
         "selftest",
         "[OPTION...]",
         "checks that the library computes here what it computes everywhere",
         {{"korvane-vad selftest", "796 ways of calling it, in a few seconds"}},
         {"Each row of a table names a way of calling the library on a synthetic signal, and the "
          "SHA-256 of what must come out. Two models that were written separately from the library "
          "agree on these digests. If rows differ, the first is shown with what was expected and "
          "what came out, and the exit status is 1. The last line has one digest over all rows."}},
    };
    return texts;
}

const CommandText& text_of(Command command) {
    return command_texts()[static_cast<std::size_t>(command)];
}

}  // namespace korvane::tool
