#pragma once

#include <QStringList>
#include <vector>

#include "leveling/facts/preparation_words.h"

namespace desktop {

/** What was done to a recording around the engine, in the language of the window. */
QStringList preparation_texts(const std::vector<quorvane::Done>& deeds);

}  // namespace desktop
