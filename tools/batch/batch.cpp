#include "tools/batch/batch.h"

#include <poll.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <set>
#include <utility>

#include "korvane_stream.h"
#include "tools/batch/manifest.h"
#include "tools/batch/worker.h"
#include "tools/cli/name_template.h"
#include "tools/cli/progress.h"
#include "tools/files/failure.h"
#include "tools/files/text_output.h"

namespace korvane::tool {

namespace {

constexpr int kPollMilliseconds = 100;

/** Memory that workers write to, one state each. */
class WorkerStates {
  public:
    explicit WorkerStates(int count)
        : bytes_(sizeof(WorkerState) * static_cast<std::size_t>(count)) {
        void* memory =
            mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) {
            throw Failure("worker processes", std::strerror(errno));
        }
        states_ = static_cast<WorkerState*>(memory);
        for (int i = 0; i < count; ++i) {
            new (states_ + i) WorkerState{};
        }
    }
    ~WorkerStates() { munmap(states_, bytes_); }
    WorkerStates(const WorkerStates&) = delete;
    WorkerStates& operator=(const WorkerStates&) = delete;
    WorkerState* at(int slot) { return states_ + slot; }

  private:
    std::size_t bytes_;
    WorkerState* states_ = nullptr;
};

/** Where results go, in the order of the recordings. */
class Results {
  public:
    Results(const Options& options, bool several) : options_(options), several_(several) {
        if (options.check) {
            return;
        }
        if (is_folder(options.output)) {
            std::error_code error;
            std::filesystem::create_directories(options.output, error);
            if (error) {
                throw Failure(options.output, error.message());
            }
            return;
        }
        output_ = std::make_unique<TextOutput>(options.output);
        output_->write(file_prologue(options.format));
    }

    void add(const std::string& name, const Finding& finding) {
        speech_ = speech_ || finding.speech;
        if (options_.check) {
            return;
        }
        if (!output_) {
            TextOutput own(path_in(options_, name));
            own.write(file_prologue(options_.format) + finding.text +
                      file_epilogue(options_.format));
            own.commit();
            return;
        }
        write(finding.text);
    }

    /** Says in the results too that there are none. A folder gets no file. */
    void add_failed(const std::string& name, const std::string& error) {
        if (output_) {
            write(failed_result(options_.format, several_, name, error));
        }
    }

    void finish() {
        if (output_) {
            output_->write(file_epilogue(options_.format));
            output_->commit();
        }
    }

    bool speech() const { return speech_; }

    static std::string path_in(const Options& options, const std::string& name) {
        return (std::filesystem::path(options.output) /
                (stem_of(name) + extension_of(options.format)))
            .string();
    }

  private:
    void write(const std::string& text) {
        output_->write((count_++ > 0 ? file_separator(options_.format) : "") + text);
        output_->flush();
    }

    const Options& options_;
    bool several_;
    bool speech_ = false;
    int64_t count_ = 0;
    std::unique_ptr<TextOutput> output_;
};

class Batch {
  public:
    Batch(const Options& options, const std::vector<std::string>& names, bool several)
        : options_(options),
          names_(names),
          several_(several),
          states_(options.jobs),
          workers_(static_cast<std::size_t>(options.jobs)),
          states_of_files_(names.size()),
          outcomes_(names.size()),
          bar_(options.progress, false) {
        if (!options.manifest.empty()) {
            manifest_ = std::make_unique<Manifest>(
                options.manifest, std::string("korvane-vad " KORVANE_VERSION ", korvane-streams ") +
                                      korvane_stream_version() + ", " + options.fingerprint() +
                                      (several ? ", several" : ""));
        }
        for (std::size_t i = 0; i < names.size(); ++i) {
            states_of_files_[i] = state_of(names[i]);
            total_bytes_ += static_cast<double>(bytes(i));
        }
    }

    int run() {
        Results results(options_, several_);
        while (next_result_ < names_.size() && !stopped_) {
            start_workers();
            hand_over(results);
            if (next_result_ < names_.size() && !stopped_ && running_ > 0) {
                wait();
            }
        }
        bar_.wipe();
        for (std::unique_ptr<Worker>& worker : workers_) {
            worker.reset();
        }
        if (stopped_ && !options_.output.empty()) {
            return 1;  // the output is not whole, so it does not appear
        }
        results.finish();
        if (options_.check) {
            return failed_ ? 2 : results.speech() ? 0 : 1;
        }
        return failed_ ? 1 : 0;
    }

  private:
    int64_t bytes(std::size_t file) const {
        return states_of_files_[file] ? states_of_files_[file]->size + 1 : 1;
    }

    void start_workers() {
        for (int slot = 0; slot < options_.jobs; ++slot) {
            std::unique_ptr<Worker>& worker = workers_[static_cast<std::size_t>(slot)];
            while (!worker && next_start_ < names_.size() && !failure_seen()) {
                const std::size_t file = next_start_++;
                if (!take_from_manifest(file)) {
                    states_of_files_[file] = state_of(names_[file]);  // as the worker will find it
                    worker = std::make_unique<Worker>(slot, names_[file], options_, several_,
                                                      states_.at(slot));
                    files_[slot] = file;
                    ++running_;
                }
            }
        }
    }

    bool failure_seen() const { return options_.fail_fast && worker_failed_; }

    bool take_from_manifest(std::size_t file) {
        if (!manifest_ || !states_of_files_[file]) {
            return false;
        }
        const std::optional<Finding> known = manifest_->find(names_[file], *states_of_files_[file]);
        if (known) {
            outcomes_[file].emplace();
            outcomes_[file]->finding = *known;
            total_bytes_ -= static_cast<double>(bytes(file));
        }
        return known.has_value();
    }

    /** Until a worker has something to say, or it is time to draw. */
    void wait() {
        std::vector<pollfd> list;
        std::vector<Worker*> speakers;
        for (const std::unique_ptr<Worker>& worker : workers_) {
            if (worker) {
                list.push_back({worker->descriptor(), POLLIN, 0});
                speakers.push_back(worker.get());
            }
        }
        poll(list.data(), list.size(), bar_.shown() ? kPollMilliseconds : -1);
        for (std::size_t i = 0; i < list.size(); ++i) {
            if (list[i].revents != 0 && speakers[i]->receive()) {
                end(*speakers[i]);  // cppcheck-suppress shadowVariable; a call, not a declaration
            }
        }
        draw();
    }

    void end(Worker& worker) {
        const int slot = worker.slot();
        const std::size_t file = files_[slot];
        const Outcome& outcome = outcomes_[file].emplace(worker.outcome());
        const bool sound = !outcome.failed && outcome.finding.fault.empty();
        worker_failed_ = worker_failed_ || !sound;
        done_bytes_ += static_cast<double>(bytes(file));
        done_seconds_ += states_.at(slot)->seconds;
        // A recording that has changed meanwhile will be done again.
        if (manifest_ && sound && states_of_files_[file] &&
            state_of(names_[file]) == states_of_files_[file]) {
            manifest_->add(names_[file], *states_of_files_[file], outcome.finding);
        }
        --running_;
        workers_[static_cast<std::size_t>(slot)].reset();
    }

    /** Results whose turn has come. */
    void hand_over(Results& results) {
        while (next_result_ < names_.size() && outcomes_[next_result_] && !stopped_) {
            const Outcome& outcome = *outcomes_[next_result_];
            bar_.wipe();
            if (outcome.failed) {
                results.add_failed(names_[next_result_], outcome.error);
            } else {
                results.add(names_[next_result_], outcome.finding);
                warn(options_, names_[next_result_], outcome.finding.doubt);
            }
            const std::string& error = outcome.failed ? outcome.error : outcome.finding.fault;
            if (!error.empty()) {
                std::fprintf(stderr, "korvane-vad: %s\n", error.c_str());
                failed_ = true;
                stopped_ = options_.fail_fast;
            }
            outcomes_[next_result_++].reset();
        }
    }

    void draw() {
        double now_bytes = done_bytes_;
        double now_seconds = done_seconds_;
        for (int slot = 0; slot < options_.jobs; ++slot) {
            if (workers_[static_cast<std::size_t>(slot)]) {
                const double fraction = states_.at(slot)->fraction;
                now_bytes += static_cast<double>(bytes(files_[slot])) * std::max(fraction, 0.0);
                now_seconds += states_.at(slot)->seconds;
            }
        }
        bar_.update(total_bytes_ > 0 ? now_bytes / total_bytes_ : -1, now_seconds,
                    std::to_string(next_result_) + "/" + std::to_string(names_.size()) + " files");
    }

    const Options& options_;
    const std::vector<std::string>& names_;
    bool several_;
    WorkerStates states_;
    std::vector<std::unique_ptr<Worker>> workers_;  // by slot
    std::map<int, std::size_t> files_;              // by slot
    std::vector<std::optional<FileState>> states_of_files_;
    std::vector<std::optional<Outcome>> outcomes_;  // until their turn comes
    std::unique_ptr<Manifest> manifest_;
    ProgressBar bar_;
    std::size_t next_start_ = 0;
    std::size_t next_result_ = 0;
    int running_ = 0;
    bool worker_failed_ = false;
    bool failed_ = false;
    bool stopped_ = false;
    double total_bytes_ = 0;
    double done_bytes_ = 0;
    double done_seconds_ = 0;
};

using FileId = std::pair<dev_t, ino_t>;

std::optional<FileId> id_of(const std::string& name) {
    struct stat status {};
    if (stat(name.c_str(), &status) != 0) {
        return std::nullopt;
    }
    return FileId{status.st_dev, status.st_ino};
}

void check_names_differ(const Options& options, const std::vector<std::string>& names) {
    std::set<FileId> inputs;
    std::vector<std::string> all = names;
    all.insert(all.end(), {options.files_from, options.manifest});
    for (const std::string& name : all) {
        if (const std::optional<FileId> id = id_of(name == "-" ? "/dev/stdin" : name)) {
            inputs.insert(*id);
        }
    }
    std::map<std::string, std::string> written;
    for (const std::string& name : names) {
        const std::string path = Results::path_in(options, name);
        if (const std::optional<FileId> id = id_of(path); id && inputs.count(*id) != 0) {
            throw Failure(path, "is an input; the results would overwrite it");
        }
        options.check_may_overwrite(path);
        const auto [place, is_new] = written.try_emplace(path, name);
        if (!is_new) {
            throw Failure(path, "would hold the results of both " + place->second + " and " + name);
        }
    }
}

/** Nobody could tell whose segments are whose. */
void check_ids_differ(const Options& options, const std::vector<std::string>& names) {
    std::map<std::string, std::string> ids;
    for (const std::string& name : names) {
        const std::string id = file_id_of(name, options);
        const auto [place, is_new] = ids.try_emplace(id, name);
        if (!is_new && place->second != name) {
            throw Failure(name, "would be called " + id + " in the results, as " + place->second +
                                    " is; --file-id path tells them apart");
        }
    }
}

}  // namespace

bool is_folder(const std::string& output) {
    struct stat status {};
    return !output.empty() && (output.back() == '/' ||
                               (stat(output.c_str(), &status) == 0 && S_ISDIR(status.st_mode)));
}

int run_batch(const Options& options, const std::vector<std::string>& names) {
    const bool several = (names.size() > 1 || !options.files_from.empty() || options.recursive) &&
                         !is_folder(options.output);
    if (several && !options.check && !holds_several(options.format)) {
        throw UsageError(Command::kDetect,
                         "this format holds one recording; -o DIR/ writes a file "
                         "for each");
    }
    if (is_folder(options.output)) {
        check_names_differ(options, names);
    } else if (options.format == ResultFormat::kRttm) {
        check_ids_differ(options, names);
    }
    return Batch(options, names, several).run();
}

}  // namespace korvane::tool
