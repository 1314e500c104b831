#include "desktop/model/finding_text.h"

#include <QCoreApplication>
#include <QLocale>
#include <algorithm>
#include <cmath>

#include "leveling/advice/advice_table.h"
#include "leveling/advice/finding_words.h"
#include "leveling/advice/speech_words.h"

/*
 * The sentences come from the table that the command line uses, too; the translations have them by
 * these sources, and what they lack is shown in English.
 */

namespace desktop {
namespace {

using quorvane::Finding;
using quorvane::SpeechState;

/** The texts of this file stand in one context of the translations. */
struct FindingText {
    Q_DECLARE_TR_FUNCTIONS(FindingText)
};

// The texts of the table, for the translations.
[[maybe_unused]] constexpr const char* kTexts[] = {
    QT_TRANSLATE_NOOP("FindingText", "{value} % of the recording is clipped"),
    QT_TRANSLATE_NOOP("FindingText",
                      "Repair it with a declipper first, then drop the repaired file here."),
    QT_TRANSLATE_NOOP("FindingText", "the {detail} side is silent"),
    QT_TRANSLATE_NOOP(
        "FindingText",
        "Make a mono file of the side that has sound in an editor, then drop that here."),
    QT_TRANSLATE_NOOP("FindingText", "the {detail} side is {value} dB quieter than the other"),
    QT_TRANSLATE_NOOP(
        "FindingText",
        "Bring both sides to one level in an editor, or make a mono file, then drop it here."),
    QT_TRANSLATE_NOOP("FindingText", "the sides are out of phase; in mono {value} dB are lost"),
    QT_TRANSLATE_NOOP("FindingText", "Invert one side in an editor, then drop the file here."),
    QT_TRANSLATE_NOOP("FindingText", "the wave lies {value} % of full scale off its zero line"),
    QT_TRANSLATE_NOOP("FindingText", "mains hum ({detail}) is {against} the speech"),
    QT_TRANSLATE_NOOP("FindingText",
                      "Take it out with a hum filter first, then drop the filtered file here."),
    QT_TRANSLATE_NOOP("FindingText", "its noise is only {value} dB under the speech"),
    QT_TRANSLATE_NOOP("FindingText",
                      "Reduce the noise in an editor first, then drop that file here."),
    QT_TRANSLATE_NOOP("FindingText", "wind or rumble is {against} the speech"),
    QT_TRANSLATE_NOOP("FindingText", "it has {value} {unit} of long pauses"),
    QT_TRANSLATE_NOOP("FindingText", "Cut them in an editor if they are not meant."),
    QT_TRANSLATE_NOOP("FindingText", "the sound breaks off or jumps at {value} places"),
    QT_TRANSLATE_NOOP(
        "FindingText",
        "Ask for the local recording of the speaker, or repair the places in an editor."),
    QT_TRANSLATE_NOOP("FindingText",
                      "another voice seems to spill in, {value} dB under the main one"),
    QT_TRANSLATE_NOOP("FindingText",
                      "Give all microphones of one talk together where you have them."),
    QT_TRANSLATE_NOOP("FindingText", "music or another sound is {against} the voice"),
    QT_TRANSLATE_NOOP("FindingText", "Level the voice alone and add the music afterwards."),
    QT_TRANSLATE_NOOP("FindingText", "the room is very reverberant ({value} s)"),
    QT_TRANSLATE_NOOP("FindingText", "Reduce the reverberation in an editor first, if you can."),
    QT_TRANSLATE_NOOP("FindingText", "its sound is stored at only {value} {unit}"),
    QT_TRANSLATE_NOOP("FindingText", "Level the original recording if there is one."),
    QT_TRANSLATE_NOOP("FindingText", "the {detail} is only {value} s long"),
    QT_TRANSLATE_NOOP("FindingText", "Join short clips before you level them."),
    QT_TRANSLATE_NOOP("FindingText", "{value} {unit} of the sound is missing"),
    QT_TRANSLATE_NOOP("FindingText", "Copy the file again from where it came from."),
    QT_TRANSLATE_NOOP("FindingText", "it was so quiet that it was raised by {value} dB"),
    QT_TRANSLATE_NOOP("FindingText",
                      "Listen to the pauses; reduce their noise in an editor if it disturbs."),
    QT_TRANSLATE_NOOP("FindingText", "left"),
    QT_TRANSLATE_NOOP("FindingText", "right"),
    QT_TRANSLATE_NOOP("FindingText", "recording"),
    QT_TRANSLATE_NOOP("FindingText", "speech"),
};

QString translated(const std::string& text) {
    return QCoreApplication::translate("FindingText", text.c_str());
}

QString number(double value, int decimals) {
    return QLocale().toString(value, 'f', decimals);
}

QString clause_text(const Finding& finding) {
    const quorvane::Advice* advice = quorvane::find_advice(finding.code);
    if (!advice) {
        return QString::fromStdString(quorvane::clause_of(finding));
    }
    const QString unit = QString::fromStdString(finding.unit);
    const QString distance = number(std::fabs(finding.value), advice->decimals);
    const QString against =
        (finding.value < 0 ? FindingText::tr("%1 %2 under") : FindingText::tr("%1 %2 over"))
            .arg(distance, unit);
    QString text = translated(advice->clause);
    text.replace(QStringLiteral("{value}"), number(finding.value, advice->decimals));
    text.replace(QStringLiteral("{unit}"), unit);
    text.replace(QStringLiteral("{detail}"), translated(finding.detail));
    text.replace(QStringLiteral("{against}"), against);
    return text;
}

}  // namespace

QString shown_objections(const quorvane::FileFacts& facts) {
    QStringList clauses;
    for (const Finding* finding : quorvane::objections(facts)) {
        clauses.append(clause_text(*finding));
    }
    if (clauses.size() < 2) {
        return clauses.join(QString());
    }
    const QString last = clauses.takeLast();
    return FindingText::tr("%1, and %2").arg(clauses.join(QStringLiteral(", ")), last);
}

QStringList finding_texts(const quorvane::FileFacts& facts) {
    QStringList texts;
    for (const Finding& finding : facts.findings) {
        QString text = clause_text(finding);
        text = text.left(1).toUpper() + text.mid(1) + QStringLiteral(".");
        const std::string advice = quorvane::advice_of(finding, quorvane::Face::Window);
        texts.append(advice.empty() ? text : text + QStringLiteral(" ") + translated(advice));
    }
    return texts;
}

QString speech_text(const quorvane::FileFacts& facts) {
    if (!facts.speech || !facts.after) {
        return {};
    }
    if (facts.speech->state != SpeechState::Measured) {
        return facts.speech->state == SpeechState::TooShort
                   ? FindingText::tr("Too short to measure: needs 0.4 s.")
                   : FindingText::tr("No speech found.");
    }
    if (facts.speech->count <= 1 || !std::isfinite(facts.speech->span_after_db)) {
        return {};
    }
    const long before = quorvane::whole_db(facts.speech->span_before_db);
    const long after = quorvane::whole_db(facts.speech->span_after_db);
    const QString text =
        before == after
            ? FindingText::tr("Passages of speech are within %2 dB of each other, as before.")
        : after > before
            ? FindingText::tr(
                  "Passages of speech were within %1 dB of each other; now up to %2 dB apart.")
            : FindingText::tr("Passages of speech were up to %1 dB apart; now within %2 dB.");
    return QString(text)
        .replace(QStringLiteral("%1"), QString::number(before))
        .replace(QStringLiteral("%2"), QString::number(after));
}

}  // namespace desktop
