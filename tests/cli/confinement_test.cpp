#include "cli/worker/confinement.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <functional>
#include <string>

#include "tests/support/fixtures.h"

namespace cli {
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
    const Confined confined = confine(job);
    int wrong = 0;
    for (const Try& row : tries) {
        if (!(row.fence == kFiles ? confined.files : confined.network)) {
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
// that of the job; the input is a link to a file in a fourth.
TEST(Confinement, AWorkerReachesItsFilesAndNothingElse) {
    const TempDir dir;
    for (const char* folder : {"/in", "/store", "/out", "/tmp", "/tmp/run", "/tmp/run/0"}) {
        ASSERT_EQ(0, mkdir((dir.path() + folder).c_str(), 0700));
    }
    for (const char* file : {"/in/other.wav", "/store/talk.wav", "/store/other.wav", "/out/old"}) {
        write_text(dir.path() + file, "x");
    }
    ASSERT_EQ(0, symlink("../store/talk.wav", (dir / "in/talk.wav").c_str()));
    Job job;
    job.input = dir / "in/talk.wav";
    job.output = dir / "out/new/talk-leveled.wav";
    job.new_folder = dir / "out/new";
    job.scratch = dir / "tmp/run/0";

    const std::string new_output = job.output + ".part";
    const std::vector<Try> tries = {
        {"read the input", kFiles, 0, opening(job.input, O_RDONLY)},
        {"write the input", kFiles, EACCES, opening(job.input, O_WRONLY)},
        {"read beside the input", kFiles, EACCES, opening(dir / "in/other.wav", O_RDONLY)},
        {"read beside the link's target", kFiles, EACCES,
         opening(dir / "store/other.wav", O_RDONLY)},
        {"remove the input", kFiles, EACCES,
         [&] { return unlink((dir / "store/talk.wav").c_str()) == 0; }},
        {"make a file elsewhere", kFiles, EACCES, opening(dir / "in/new", O_RDWR | O_CREAT)},
        {"make the output's folder", kFiles, 0,
         [&] { return mkdir(job.new_folder.c_str(), 0700) == 0; }},
        {"make a part", kFiles, 0, opening(new_output, O_RDWR | O_CREAT | O_EXCL)},
        {"name it", kFiles, 0, [&] { return link(new_output.c_str(), job.output.c_str()) == 0; }},
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
        {"a socket", kCalls, EPERM, [] { return socket(AF_INET, SOCK_STREAM, 0) >= 0; }},
        {"a local socket", kCalls, EPERM, [] { return socket(AF_UNIX, SOCK_STREAM, 0) >= 0; }},
        {"a program", kCalls, EPERM,
         [] { return execl("/bin/true", "true", static_cast<char*>(nullptr)) == 0; }},
        {"a signal to the parent", kCalls, EPERM, [] { return kill(getppid(), 0) == 0; }},
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
        confine(job);
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
}  // namespace cli
