#pragma once

#include <QString>
#include <QStringList>

#include "leveling/facts/run_facts.h"

namespace desktop {

/** The problems and warnings of a recording, "the right side is silent"; empty without any. */
QString shown_objections(const quorvane::FileFacts& facts);

/** Every finding as a sentence with what to do about it, the gravest first. */
QStringList finding_texts(const quorvane::FileFacts& facts);

/** "Passages of speech were up to 14 dB apart; now within 1 dB."; empty where none was measured. */
QString speech_text(const quorvane::FileFacts& facts);

}  // namespace desktop
