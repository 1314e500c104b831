#include "tests/support/fixtures.h"

#include <sys/wait.h>

#include <algorithm>
#include <boost/filesystem.hpp>
#include <cstdlib>
#include <fstream>
#include <iostream>

namespace fs = boost::filesystem;

TempDir::TempDir()
    : path_((fs::temp_directory_path() / fs::unique_path("quorvane-test-%%%%%%%%")).string()) {
    fs::create_directory(path_);
}

TempDir::~TempDir() {
    boost::system::error_code ignored;
    fs::remove_all(path_, ignored);
}

std::vector<std::string> TempDir::entries() const {
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(path_)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

CapturedOutput::CapturedOutput()
    : old_out_(std::cout.rdbuf(out_.rdbuf())), old_err_(std::cerr.rdbuf(err_.rdbuf())) {}

CapturedOutput::~CapturedOutput() {
    std::cout.rdbuf(old_out_);
    std::cerr.rdbuf(old_err_);
}

std::string read_text(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void write_text(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

bool file_exists(const std::string& path) {
    return fs::exists(path);
}

ProgramResult run_program(const std::string& command_line) {
    const TempDir captured;
    const int status = std::system(
        ("{ " + command_line + "; } >" + captured / "out" + " 2>" + captured / "err").c_str());
    return {WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status),
            read_text(captured / "out"), read_text(captured / "err")};
}
