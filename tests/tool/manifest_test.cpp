#include "tools/batch/manifest.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <string>

#include "temporary_folder.h"

namespace korvane::tool {
namespace {

TEST(Manifest, WorkersThatOutliveTheirRunDoNotKeepTheNextOneOut) {
    const TemporaryFolder folder;
    pid_t worker = 0;
    {
        const Manifest first(folder.path("manifest"), "");
        worker = fork();
        if (worker == 0) {
            pause();
            _exit(0);
        }
        const pid_t other_run = fork();
        if (other_run == 0) {
            const std::string failure = failure_of([&] { Manifest(folder.path("manifest"), ""); });
            _exit(failure.find("another run") == std::string::npos ? 1 : 0);
        }
        int status = 0;
        waitpid(other_run, &status, 0);
        EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(failure_of([&] { Manifest(folder.path("manifest"), ""); }), "no failure");
    kill(worker, SIGKILL);
    waitpid(worker, nullptr, 0);
}

TEST(Manifest, SizesAreIntegersOrItIsDamaged) {
    const TemporaryFolder folder;
    const std::string path = folder.path("manifest");
    for (const char* size : {"3", "3.5", "1e3", "44444444444444444444444"}) {
        std::ofstream(path) << "{\"korvane-vad manifest\":1}\n{\"file\":\"a\",\"size\":" << size
                            << R"(,"changed":1,"options":"","speech":true,"result":""})"
                            << "\n";
        EXPECT_EQ(failure_of([&] { Manifest(path, ""); }),
                  std::string(size) == "3" ? "no failure" : path + ": line 2 is damaged")
            << size;
    }
}

}  // namespace
}  // namespace korvane::tool
