#pragma once

#include <clocale>
#ifdef __APPLE__
#include <xlocale.h>
#endif

namespace level_engine {

/**
 * While it lives, this thread formats and parses numbers with a decimal point, whatever language
 * the program that holds the engine has set.
 */
class CLocale {
  public:
    CLocale() : locale_(newlocale(LC_ALL_MASK, "C", nullptr)), previous_(uselocale(locale_)) {}

    CLocale(const CLocale&) = delete;
    CLocale& operator=(const CLocale&) = delete;

    ~CLocale() {
        uselocale(previous_);
        freelocale(locale_);
    }

  private:
    locale_t locale_;
    locale_t previous_;
};

}  // namespace level_engine

using level_engine::CLocale;
