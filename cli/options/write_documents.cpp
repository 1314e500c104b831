/*
 * Writes what is made from the option table, at build time:
 * write_documents MAN_TEMPLATE MAN_PAGE BASH ZSH FISH
 */

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "Common/version.h"
#include "cli/options/option_documents.h"

namespace {

/** Writes a whole file; false, with a message, when that fails. */
bool write(const char* path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
    out.close();
    if (!out) {
        fprintf(stderr, "write_documents: cannot write %s\n", path);
    }
    return bool(out);
}

/** Puts value in place of a mark; false when the text has none. */
bool fill_in(std::string& text, const std::string& mark, const std::string& value) {
    const std::size_t at = text.find(mark);
    if (at != std::string::npos) {
        text.replace(at, mark.size(), value);
    }
    return at != std::string::npos;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 6) {
        return 2;
    }
    std::ifstream in(argv[1], std::ios::binary);
    std::ostringstream page;
    page << in.rdbuf();
    std::string text = page.str();
    if (!fill_in(text, "@VERSION@", kVersion) ||
        !fill_in(text, "@OPTIONS@\n", quorvane::man_options()) ||
        !fill_in(text, "@DESTINATIONS@\n", quorvane::man_destinations())) {
        fprintf(stderr, "write_documents: %s lacks a mark that is filled in\n", argv[1]);
        return 1;
    }
    const bool written = write(argv[2], text) && write(argv[3], quorvane::bash_completion()) &&
                         write(argv[4], quorvane::zsh_completion()) &&
                         write(argv[5], quorvane::fish_completion());
    return written ? 0 : 1;
}
