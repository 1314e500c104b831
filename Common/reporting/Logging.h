#pragma once

#include <fstream>
#include <string>

/** A debugging dump of numeric series to a text file; nothing of it is used by a normal run. */
class Logging {
  public:
    /** Opens path for writing, after closing the file opened before. */
    void InitLOG(const std::string& path);
    void Close();

    void DumpOne(double value);
    void DumpOne(double first, double second);
    void DumpOne(long long first, long long second);

    /** The n values, one per line. */
    void DumpAll(const double* values, unsigned long n);

    /** "i,value" lines of the n values of a, a blank line, then those of b. */
    void DumpAll(const double* a, const double* b, unsigned long n);

    /** count blank lines. */
    void ShootBlanks(int count);

  private:
    void DumpIndexed(const double* values, unsigned long n);

    std::string path_;
    std::ofstream file_;
};
