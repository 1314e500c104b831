#pragma once

#include <fstream>
#include <string>
#include <vector>

/**
 * The numbers of a text file, separated by white space, up to the first word that is none. A file
 * that cannot be opened gives no numbers.
 */
inline std::vector<double> read_series(const std::string& path) {
    std::ifstream file(path);
    std::vector<double> values;
    for (double value = 0.0; file >> value;) {
        values.push_back(value);
    }
    return values;
}
