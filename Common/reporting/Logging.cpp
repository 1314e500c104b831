#include "Common/reporting/Logging.h"

#include <iostream>

// Values have five digits behind the point and an exponent: a plotting program reads them without
// format settings, and columns line up.

void Logging::InitLOG(const std::string& path) {
    Close();
    path_ = path;
    file_.open(path);
    if (!file_) {
        // A failed dump must not end the run under study: later values are dropped.
        std::cout << "error: could not open " << path << std::endl;
        return;
    }
    file_.precision(5);
    file_.setf(std::ios::scientific, std::ios::floatfield);
}

void Logging::Close() {
    if (file_.is_open()) {
        file_.close();
    }
}

void Logging::DumpOne(double value) {
    file_ << value << "\n";
}

void Logging::DumpOne(double first, double second) {
    file_ << first << "," << second << "\n";
}

void Logging::DumpOne(long long first, long long second) {
    file_ << first << "," << second << "\n";
}

void Logging::DumpAll(const double* values, unsigned long n) {
    for (unsigned long i = 0; i < n; ++i) {
        DumpOne(values[i]);
    }
}

void Logging::DumpAll(const double* a, const double* b, unsigned long n) {
    DumpIndexed(a, n);
    ShootBlanks(1);
    DumpIndexed(b, n);
}

void Logging::DumpIndexed(const double* values, unsigned long n) {
    for (unsigned long i = 0; i < n; ++i) {
        file_ << i << "," << values[i] << "\n";
    }
}

void Logging::ShootBlanks(int count) {
    for (int i = 0; i < count; ++i) {
        file_ << "\n";
    }
}
