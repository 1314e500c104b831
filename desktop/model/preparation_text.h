#pragma once

#include <QStringList>

#include "leveling/facts/preparation_words.h"

namespace desktop {

/** What was done to a recording around the engine, in the language of the window. */
QStringList preparation_texts(const quorvane::Preparation& preparation,
                              quorvane::Phrasing phrasing);

}  // namespace desktop
