#pragma once

#include <boost/scoped_array.hpp>
#include <cstddef>
#include <exception>
#include <new>
#include <string>

#include "Common/reporting/cancel.h"

/**
 * Root of the errors that the signal-processing steps throw: an error that writes its own message.
 * std::exception is a virtual base so that a class which hides its ss_error base can still be
 * caught as a std::exception.
 */
class ss_error : public virtual std::exception {
  public:
    virtual void report() const;
};

class ss_alloc_error : public ss_error {
  public:
    void report() const override;
};

class ss_empty_command_line_error : public ss_error {};

/**
 * An error that can report itself though it is not an ss_error. The handler for std::exception
 * casts to this interface, so it does not depend on any step's error classes.
 */
class self_reporting : public virtual std::exception {
  public:
    virtual void report() const = 0;
};

/** Logs which array could not be had and why, then throws ss_alloc_error. */
[[noreturn]] void fail_allocation(const std::string& array_name,
                                  const std::string& reason,
                                  const std::string& source,
                                  int line);

/** Makes array an array of n value-initialised elements. */
template <class T>
void allocate(boost::scoped_array<T>& array,
              std::size_t n,
              const char* array_name,
              const char* source,
              int line = __builtin_LINE()) {
    try {
        array.reset(new T[n]());
    } catch (const std::bad_alloc& failure) {
        fail_allocation(array_name, failure.what(), source, line);
    }
}
