#include "tools/audio/audio_sink.h"

#include <sndfile.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <map>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "tools/audio/sample_conversion.h"
#include "tools/audio/sink_format.h"
#include "tools/audio/sndfile_output.h"
#include "tools/files/failure.h"
#include "tools/files/temporary_file.h"
#include "tools/files/write_all.h"

namespace korvane::tool {

namespace {

constexpr std::size_t kPieceSamples = 131072;

/** Rounded to 16 bits. */
std::vector<int16_t> narrowed(const void* samples, int64_t count, SampleKind kind) {
    std::vector<int16_t> narrow(static_cast<std::size_t>(count));
    if (kind == SampleKind::kInt) {
        const auto* wide = static_cast<const int32_t*>(samples);
        std::transform(wide, wide + count, narrow.begin(), sample_from_int);
    } else if (kind == SampleKind::kReal) {
        const auto* real = static_cast<const double*>(samples);
        std::transform(real, real + count, narrow.begin(), sample_from_float);
    } else {
        std::copy_n(static_cast<const int16_t*>(samples), count, narrow.begin());
    }
    return narrow;
}

/** A file in the making, or standard output. */
class Target {
  public:
    explicit Target(const std::string& path) : name_(path == "-" ? "standard output" : path) {
        if (path != "-") {
            file_ = std::make_unique<TemporaryFile>(path);
        }
    }
    int descriptor() const { return file_ ? file_->descriptor() : STDOUT_FILENO; }
    bool is_stdout() const { return !file_; }
    std::unique_ptr<TemporaryFile> take() { return std::move(file_); }
    [[noreturn]] void fail(const std::string& reason) const { throw Failure(name_, reason); }

  private:
    std::string name_;
    std::unique_ptr<TemporaryFile> file_;
};

class RawSink : public AudioSink {
  public:
    RawSink(const std::string& path, int channels) : target_(path), channels_(channels) {}

    void write(const int16_t* samples, int64_t n) override {
        for (int64_t i = 0; i < n * channels_; ++i) {
            const auto bits = static_cast<uint16_t>(samples[i]);
            pending_.push_back(static_cast<char>(bits & 0xFF));
            pending_.push_back(static_cast<char>(bits >> 8));
        }
        // Whoever listens to standard output gets every frame at once.
        if (target_.is_stdout() || pending_.size() >= 2 * kPieceSamples) {
            flush();
        }
    }

    void write_original(const void* samples, int64_t n, SampleKind kind) override {
        write(narrowed(samples, n * channels_, kind).data(), n);
    }

    std::unique_ptr<TemporaryFile> finish() override {
        flush();
        return target_.take();
    }

  private:
    void flush() {
        if (!write_all(target_.descriptor(), {pending_.data(), pending_.size()})) {
            if (errno == EPIPE && target_.is_stdout()) {
                throw ReaderGone();
            }
            target_.fail(std::strerror(errno));
        }
        pending_.clear();
    }

    Target target_;
    int channels_;
    std::vector<char> pending_;
};

class SndfileSink : public AudioSink {
  public:
    SndfileSink(const std::string& path, int format, int rate, int channels)
        : target_(path),
          output_{target_.descriptor()},
          format_(format),
          rate_(rate),
          channels_(channels) {
        if (const std::string reason = cannot_hold(format, rate, channels); !reason.empty()) {
            target_.fail(reason);
        }
        file_ = open_for_writing(output_, format, rate, channels);
        if (!file_) {
            target_.fail(sndfile_reason(sf_strerror(nullptr)));
        }
    }

    void write_original(const void* samples, int64_t n, SampleKind kind) override {
        const int64_t count = n * channels_;
        const SampleKind own = sample_kind(format_);
        if (own == SampleKind::kShort || kind == SampleKind::kShort) {
            write(narrowed(samples, count, kind).data(), n);
            return;
        }
        add_length(count);
        flush();
        sf_count_t written = 0;
        if (kind == SampleKind::kReal) {
            written = sf_write_double(file_.get(), static_cast<const double*>(samples), count);
        } else if (own == SampleKind::kInt) {
            written = sf_write_int(file_.get(), static_cast<const int32_t*>(samples), count);
        } else {
            const auto* wide = static_cast<const int32_t*>(samples);
            std::vector<double> real(static_cast<std::size_t>(count));
            std::transform(wide, wide + count, real.begin(),
                           [](int32_t sample) { return sample / 2147483648.0; });
            written = sf_write_double(file_.get(), real.data(), count);
        }
        check_written(written, count);
    }

    void write(const int16_t* samples, int64_t n) override {
        const int64_t count = n * channels_;
        add_length(count);
        pending_.insert(pending_.end(), samples, samples + count);
        if (pending_.size() >= kPieceSamples) {
            flush();
        }
    }

    std::unique_ptr<TemporaryFile> finish() override {
        flush();
        const int failed = sf_close(file_.release());
        check_output();
        if (failed != 0) {
            target_.fail("cannot be written");
        }
        if (!reads_back_as(target_.descriptor(), format_, rate_, channels_,
                           samples_written_ / channels_)) {
            target_.fail("could not be written completely");
        }
        return target_.take();
    }

  private:
    void flush() {
        check_written(write_samples(file_.get(), format_, pending_),
                      static_cast<sf_count_t>(pending_.size()));
        pending_.clear();
    }

    void add_length(int64_t count) {
        if (count > max_samples(format_) - samples_written_) {
            target_.fail(kTooLong);
        }
        samples_written_ += count;
    }

    void check_written(sf_count_t written, sf_count_t count) const {
        check_output();
        if (written != count) {
            target_.fail(sndfile_reason(sf_strerror(file_.get())));
        }
    }

    void check_output() const {
        if (output_.error != 0) {
            target_.fail(std::strerror(output_.error));
        }
    }

    Target target_;
    Output output_;
    int format_;
    int rate_;
    int channels_;
    SndfileHandle file_;  // closed before the target goes
    int64_t samples_written_ = 0;
    std::vector<int16_t> pending_;
};

}  // namespace

std::unique_ptr<AudioSink> open_sink(const std::string& path, int sf_format, int rate,
                                     int channels) {
    if (sf_format == 0) {
        return std::make_unique<RawSink>(path, channels);
    }
    return std::make_unique<SndfileSink>(path, sf_format, rate, channels);
}

}  // namespace korvane::tool
