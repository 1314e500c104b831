#include "leveling/worker/confinement.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/fixtures.h"

namespace quorvane {
namespace fs = std::filesystem;

namespace {

enum Fence { kFiles, kCalls };

struct Try {
    const char* name;
    Fence fence;
    int error;  // 0: it is allowed
    std::function<bool()> call;
};

std::function<bool()> opening(const std::string& path, int flags) {
    return [=] { return open(path.c_str(), flags, 0600) >= 0; };
}

/** In a process that is confined for the job; returns how many tries went another way. */
int try_all(const Job& job, const std::vector<Try>& tries) {
    const Confined confined = confine({job});
    int wrong = 0;
    for (const Try& row : tries) {
        if (!(row.fence == kFiles ? confined.files : confined.calls)) {
            continue;  // this kernel has no such fence
        }
        errno = 0;
        const bool done = row.call();
        const int error = done ? 0 : errno;
        if (error != row.error) {
            std::fprintf(stderr, "%s: %d in place of %d\n", row.name, error, row.error);
            ++wrong;
        }
    }
    return wrong;
}

// One folder holds the input, another the outputs, a third, as TMPDIR would, the run's folder with
// that of the job; the input is a link to a file in a fourth. What a worker may call is tried in a
// real one, by fence_test.cpp.
TEST(Confinement, AWorkerReachesItsFilesAndNothingElse) {
    const TempDir dir;
    for (const char* folder : {"/in", "/store", "/out", "/tmp", "/tmp/run", "/tmp/run/0"}) {
        ASSERT_EQ(0, mkdir((dir.path() + folder).c_str(), 0700));
    }
    for (const char* file :
         {"/in/other.wav", "/store/talk.wav", "/store/other.wav", "/out/old", "/out/part"}) {
        write_text(dir.path() + file, "x");
    }
    ASSERT_EQ(0, symlink("../store/talk.wav", (dir / "in/talk.wav").c_str()));
    Job job;
    job.input = dir / "in/talk.wav";
    job.output = dir / "out/talk-leveled.wav";
    job.part = dir / "out/part";
    job.scratch = dir / "tmp/run/0";

    const std::vector<Try> tries = {
        {"read the input", kFiles, 0, opening(job.input, O_RDONLY)},
        {"write the input", kFiles, EACCES, opening(job.input, O_WRONLY)},
        {"read beside the input", kFiles, EACCES, opening(dir / "in/other.wav", O_RDONLY)},
        {"read beside the link's target", kFiles, EACCES,
         opening(dir / "store/other.wav", O_RDONLY)},
        {"remove the input", kFiles, EACCES,
         [&] { return unlink((dir / "store/talk.wav").c_str()) == 0; }},
        {"make a file elsewhere", kFiles, EACCES, opening(dir / "in/new", O_RDWR | O_CREAT)},
        {"fill the part", kFiles, 0, opening(job.part, O_RDWR | O_CREAT | O_TRUNC)},
        {"remove the part", kFiles, EACCES, [&] { return unlink(job.part.c_str()) == 0; }},
        {"name the part", kFiles, EACCES,
         [&] { return rename(job.part.c_str(), job.output.c_str()) == 0; }},
        {"make a file beside the part", kFiles, EACCES, opening(job.output, O_RDWR | O_CREAT)},
        {"read beside the part", kFiles, EACCES, opening(dir / "out/old", O_RDONLY)},
        {"make a temporary file", kFiles, 0, opening(job.scratch + "/_01.wav", O_RDWR | O_CREAT)},
        {"move it", kFiles, 0,
         [&] {
             return mkdir((job.scratch + "/engine").c_str(), 0700) == 0 &&
                    rename((job.scratch + "/_01.wav").c_str(),
                           (job.scratch + "/engine/_01.wav").c_str()) == 0;
         }},
        {"make a file in the run's folder", kFiles, EACCES,
         opening(dir / "tmp/run/new", O_RDWR | O_CREAT)},
        {"read the system's files", kFiles, 0, opening("/etc/passwd", O_RDONLY)},
        {"write to nowhere", kFiles, 0, opening("/dev/null", O_RDWR)},
        {"read beside the program", kFiles, EACCES,
         opening(fs::read_symlink("/proc/self/exe").parent_path(), O_RDONLY)},
        {"a socket", kCalls, EPERM, [] { return socket(AF_INET, SOCK_STREAM, 0) >= 0; }},
        {"a process", kCalls, EPERM,
         [] {
             const pid_t child = fork();
             if (child == 0) {
                 _exit(0);
             }
             return child > 0;
         }},
        {"a mode", kCalls, EPERM, [&] { return chmod(job.part.c_str(), 0777) == 0; }},
    };
    EXPECT_EXIT(_exit(try_all(job, tries)), testing::ExitedWithCode(0), "");
}

// A file of 1000 bytes: 8 GiB and 10,000 times its size; 4 GiB of memory and 8 times its size.
TEST(Confinement, BoundsFollowTheInputsSize) {
    const TempDir dir;
    Job job;
    job.input = dir / "talk.wav";
    write_text(job.input, std::string(1000, 'x'));
    const auto check = [&] {
        confine({job});
        struct rlimit file {};
        struct rlimit open_files {};
        getrlimit(RLIMIT_FSIZE, &file);
        getrlimit(RLIMIT_NOFILE, &open_files);
        const int out = open("/dev/null", O_WRONLY);
        return file.rlim_max == (rlim_t{8} << 30) + 10000000 && open_files.rlim_max <= 256 &&
                       out >= 0
                   ? 0
                   : 1;
    };
    EXPECT_EXIT(_exit(check()), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace quorvane
