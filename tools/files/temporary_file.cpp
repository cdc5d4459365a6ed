#include "tools/files/temporary_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>

#include "tools/files/ending_signals.h"
#include "tools/files/failure.h"

namespace korvane::tool {

namespace {

/** `path` itself, or what the last of the symbolic links that begin there points to, be it nothing
 * yet. There is no circle: that is an error of stat. */
std::string end_of_links(const std::string& path) {
    std::filesystem::path target = path;
    std::error_code none;
    while (std::filesystem::is_symlink(target, none)) {
        target = target.parent_path() / std::filesystem::read_symlink(target, none);
    }
    return target;
}

void remove_and_die(int signal) {
    remove_temporary_files();
    raise(signal);  // the default action, restored by SA_RESETHAND, once this handler returns
}

}  // namespace

std::atomic<TemporaryFile*> TemporaryFile::first_ = nullptr;

void remove_temporary_files() {
    const int error = errno;
    const pid_t self = getpid();
    for (const TemporaryFile* file = TemporaryFile::first_; file != nullptr; file = file->next_) {
        if (file->owner_ == self) {
            unlink(file->name_.c_str());
        }
    }
    errno = error;
}

void remove_temporary_files_on_signals() {
    on_ending_signals(remove_and_die, static_cast<int>(SA_RESETHAND));
}

TemporaryFile::TemporaryFile(const std::string& path) : path_(path), owner_(getpid()) {
    const mode_t mask = umask(0);
    umask(mask);
    mode_t mode = 0666 & ~mask;
    struct stat status {};
    if (stat(path.c_str(), &status) == 0) {
        if (!S_ISREG(status.st_mode)) {
            throw Failure(path_, "not a regular file");
        }
        char* const resolved = realpath(path.c_str(), nullptr);
        if (resolved == nullptr) {
            fail();
        }
        target_ = resolved;
        std::free(resolved);
        if (access(target_.c_str(), W_OK) != 0) {
            fail();
        }
        mode = status.st_mode & 07777;
    } else if (errno == ENOENT) {
        target_ = end_of_links(path);
    } else {
        fail();
    }
    create();
    if (fchmod(descriptor_, mode) != 0) {
        const int error = errno;
        leave();
        errno = error;
        fail();
    }
}

TemporaryFile::~TemporaryFile() { leave(); }

void TemporaryFile::create() {
    name_ = folder() + "/.korvane-vad-XXXXXX";
    const EndingSignalsDeferred deferred;
    descriptor_ = mkostemp(name_.data(), O_CLOEXEC);
    if (descriptor_ < 0) {
        fail();
    }
    next_ = first_;
    first_ = this;
}

/** Removes the file, if it still has its temporary name, and forgets it. */
void TemporaryFile::leave() {
    const EndingSignalsDeferred deferred;
    if (!name_.empty() && owner_ == getpid()) {
        unlink(name_.c_str());
    }
    TemporaryFile* before = first_;
    if (before == this) {
        first_ = next_;
    } else {
        while (before->next_ != this) {
            before = before->next_;
        }
        before->next_ = next_;
    }
    close_descriptor();
}

std::string TemporaryFile::folder() const {
    const std::string parent = std::filesystem::path(target_).parent_path();
    return parent.empty() ? "." : parent;
}

void TemporaryFile::close_descriptor() {
    if (descriptor_ >= 0) {
        close(descriptor_);
        descriptor_ = -1;
    }
}

void TemporaryFile::commit() {
    if (fsync(descriptor_) != 0) {
        fail();
    }
    rename();
}

void TemporaryFile::commit_all(const std::vector<std::unique_ptr<TemporaryFile>>& files) {
    std::set<std::string> synced;  // where symbolic links lead elsewhere there are several
    for (const std::unique_ptr<TemporaryFile>& file : files) {
        const std::string where = file->folder();
        if (!synced.insert(where).second) {
            continue;
        }
        const int opened = open(where.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        const bool done = opened >= 0 && syncfs(opened) == 0;
        const int error = errno;
        close(opened);
        errno = error;
        if (!done) {
            file->fail();
        }
    }
    for (const std::unique_ptr<TemporaryFile>& file : files) {
        file->rename();
    }
}

void TemporaryFile::rename() {
    const EndingSignalsDeferred deferred;
    if (std::rename(name_.c_str(), target_.c_str()) != 0) {
        fail();
    }
    name_.clear();
}

void TemporaryFile::fail() const {
    throw Failure(path_, errno != 0 ? std::strerror(errno) : "cannot be written");
}

}  // namespace korvane::tool
