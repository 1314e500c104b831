#include "Common/files/series.h"

#include <cerrno>
#include <cstring>
#include <locale>

#include "Common/reporting/write_error.h"

namespace level_engine {

std::string read_problem(const std::istream& file, const std::string& path) {
    return file.bad() ? "error reading from " + path + ": " + std::strerror(errno) : "";
}

std::vector<double> read_series(const std::string& path, std::string* problem) {
    std::ifstream file(path);
    file.imbue(std::locale::classic());
    std::vector<double> values;
    errno = 0;
    // Reads up to the end or the first word that is not a number, which is not an error.
    for (double value = 0.0; read_number(file, value);) {
        values.push_back(value);
    }
    if (problem != nullptr) {
        *problem = read_problem(file, path);
    }
    return values;
}

std::string close_text(std::ofstream& file, const std::string& path) {
    // An earlier write that failed has left its reason there; closing may add the last block's.
    if (file) {
        errno = 0;
    }
    file.close();
    if (file) {
        return "";
    }
    reporting::note_write_error(errno);
    return "error writing to " + path +
           (errno == 0 ? "" : std::string(": ") + std::strerror(errno));
}

SeriesWriter::SeriesWriter(const std::string& path, Notation notation, int width, int digits)
    : path_(path), notation_(notation), width_(width), digits_(digits), file_(path) {}

void SeriesWriter::write(double value) {
    char line[512];  // 128 digits, and the 309 before a fixed notation's point
    const std::size_t length = write_number(line, sizeof line - 1, notation_, digits_, value);
    const std::size_t width = static_cast<std::size_t>(width_);
    for (std::size_t missing = length; missing < width; ++missing) {
        file_.put(' ');
    }
    line[length] = '\n';
    file_.write(line, static_cast<std::streamsize>(length + 1));
}

std::string SeriesWriter::close() {
    return close_text(file_, path_);
}

}  // namespace level_engine
