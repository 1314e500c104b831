#include "desktop/model/words.h"

#include <QCoreApplication>
#include <QLocale>
#include <QStringList>
#include <cmath>
#include <optional>

#include "desktop/intake/paths.h"
#include "desktop/model/finding_text.h"
#include "desktop/model/preparation_text.h"
#include "leveling/advice/notable_deeds.h"

/*
 * Facts as sentences, in the language of the window. Causes come from the engine and the workers in
 * English; the usual ones are listed here so that they are translated, and an unknown one is shown
 * as it came rather than not at all.
 */

namespace desktop {
namespace {

using quorvane::Outcome;

/** The texts of this file stand in one context of the translations. */
struct Words {
    Q_DECLARE_TR_FUNCTIONS(Words)
};

// Causes that often come from the engine, the workers or the search, for the translations; any
// other is shown as it comes.
[[maybe_unused]] constexpr const char* kCauses[] = {
    QT_TRANSLATE_NOOP("Cause", "silent"),
    QT_TRANSLATE_NOOP("Cause", "every sample is the same"),
    QT_TRANSLATE_NOOP("Cause", "shorter than 0.05 s"),
    QT_TRANSLATE_NOOP("Cause", "does not exist"),
    QT_TRANSLATE_NOOP("Cause", "holds no audio file to level"),
    QT_TRANSLATE_NOOP("Cause", "already leveled"),
    QT_TRANSLATE_NOOP("Cause", "not supported"),
    QT_TRANSLATE_NOOP("Cause", "its output exists"),
    QT_TRANSLATE_NOOP("Cause",
                      "the output was created by another program in the meantime and was kept"),
    QT_TRANSLATE_NOOP("Cause", "cannot be read"),
    QT_TRANSLATE_NOOP("Cause", "cannot be read as audio"),
    QT_TRANSLATE_NOOP("Cause", "Format not recognised."),
    QT_TRANSLATE_NOOP("Cause", "its format is not known"),
    QT_TRANSLATE_NOOP("Cause", "has no sound"),
    QT_TRANSLATE_NOOP("Cause", "its sound cannot be decoded"),
    QT_TRANSLATE_NOOP("Cause", "it is damaged"),
    // NOLINTBEGIN(bugprone-suspicious-missing-comma): one sentence in two lines
    QT_TRANSLATE_NOOP("Cause",
                      "it was changed while it was read, so nothing was written; give the same "
                      "command again once it is complete"),
    // NOLINTEND(bugprone-suspicious-missing-comma)
    QT_TRANSLATE_NOOP("Cause", "Permission denied"),
    QT_TRANSLATE_NOOP("Cause", "No space left on device"),
    QT_TRANSLATE_NOOP("Cause", "Insufficient disk space for temporary files."),
};

/**
 * A cause is told from the outside in, "cannot be read: Permission denied": each part by itself.
 */
QString cause_text(const quorvane::FileFacts& facts) {
    const QString colon = QStringLiteral(": ");
    QStringList parts = QString::fromStdString(facts.cause).split(colon);
    for (QString& part : parts) {
        part = QCoreApplication::translate("Cause", part.toUtf8().constData());
    }
    return parts.join(colon);
}

/** One decimal, with a true minus. */
QString figure(double value) {
    if (!std::isfinite(value)) {
        return QStringLiteral("−∞");
    }
    const double shown = std::fabs(value) < 0.05 ? 0 : value;  // no "−0.0"
    return QLocale().toString(shown, 'f', 1).replace('-', QChar(0x2212));
}

/** "−23.1 → −18.0", or one number where nothing was leveled; empty where nothing was measured. */
QString from_to(const std::optional<quorvane::Loudness>& before,
                const std::optional<quorvane::Loudness>& after,
                double quorvane::Loudness::*field) {
    if (!before) {
        return {};
    }
    const QString was = figure((*before).*field);
    return after ? was + QStringLiteral(" → ") + figure((*after).*field) : was;
}

/** With a capital, as the beginning of a line. */
QString begun(const QString& words) {
    return words.left(1).toUpper() + words.mid(1);
}

/** The notes of a file, and what was done to it that is done to few. */
QStringList notes_of(const quorvane::FileFacts& facts, quorvane::Phrasing phrasing) {
    QStringList notes;
    for (const std::string& note : facts.notes) {
        notes.append(QString::fromStdString(note));
    }
    notes.append(
        preparation_texts(quorvane::notable_deeds(facts, phrasing, quorvane::Severity::Note)));
    return notes;
}

/** One line, for the row: the rest of the notes stands in the tool tip. */
QString finished_text(const quorvane::FileFacts& facts) {
    const QString cause = cause_text(facts);
    switch (facts.outcome) {
        case Outcome::Leveled:
        case Outcome::Analyzed: {
            if (const QString objections = shown_objections(facts); !objections.isEmpty()) {
                return Words::tr("Leveled, but: %1").arg(objections);
            }
            const QStringList notes = notes_of(facts, quorvane::Phrasing::Notable);
            return notes.isEmpty() ? Words::tr("Leveled")
                                   : Words::tr("Leveled; note: %1").arg(notes.front());
        }
        case Outcome::Copied:
            return Words::tr("Copied unchanged: %1").arg(cause);
        case Outcome::UpToDate:
            return begun(QCoreApplication::translate("Cause", "already leveled"));
        case Outcome::Planned:  // of dry runs, which the window does not make
            return {};
        case Outcome::Skipped:
            return begun(cause);
        case Outcome::Failed:
        case Outcome::Damaged:  // of --verify, which the window does not make
            return Words::tr("Failed: %1").arg(cause);
        case Outcome::Interrupted:
            return Words::tr("Cancelled");
    }
    return {};
}

}  // namespace

QString percent_text(int percent) {
    return Words::tr("%1%", "per cent").arg(percent);
}

QString state_text(const Row& row) {
    switch (row.state) {
        case State::Waiting:
            return Words::tr("Waiting");
        case State::Running:
            return Words::tr("Leveling, %1")
                .arg(percent_text(static_cast<int>(row.fraction * 100)));
        case State::Finished:
            return finished_text(row.facts);
    }
    return {};
}

QString loudness_text(const Row& row) {
    const QString text =
        from_to(row.facts.before, row.facts.after, &quorvane::Loudness::integrated_lufs);
    return text.isEmpty() ? text : text + QStringLiteral(" LUFS");
}

QString range_text(const Row& row) {
    const QString text = from_to(row.facts.before, row.facts.after, &quorvane::Loudness::range_lu);
    return text.isEmpty() ? text : Words::tr("Range %1 LU").arg(text);
}

QString tool_tip(const Row& row) {
    QStringList lines = {shown_name(row.input), shown_folder(row.input), state_text(row)};
    if (row.state == State::Finished) {
        lines.append(speech_text(row.facts));
        lines.append(finding_texts(row.facts));
    }
    lines.append(notes_of(row.facts, quorvane::Phrasing::Everything));
    lines.removeAll(QString());
    // A single note stands in the state already.
    lines.removeDuplicates();
    // Plain text: a name may look like HTML.
    return QStringLiteral("<p style='white-space:pre-wrap'>%1</p>")
        .arg(lines.join('\n').toHtmlEscaped());
}

// What a screen reader says of a row: name, state, and what was measured.
QString accessible_text(const Row& row) {
    QStringList parts = {shown_name(row.input), state_text(row), loudness_text(row),
                         range_text(row)};
    // A screen reader pauses at the commas: nothing empty between them.
    parts.removeAll(QString());
    return parts.join(QStringLiteral(", "));
}

QString time_left_text(double seconds) {
    constexpr double kMinute = 60;
    constexpr double kHour = 3600;
    if (seconds < kMinute) {
        return Words::tr("less than a minute left");
    }
    if (seconds < kHour) {
        return Words::tr("%n minute(s) left", nullptr,
                         static_cast<int>(std::ceil(seconds / kMinute)));
    }
    // Rounded up: a promise that is kept early is forgiven.
    return Words::tr("%n hour(s) left", nullptr, static_cast<int>(std::ceil(seconds / kHour)));
}

void Counts::add(Outcome outcome) {
    switch (outcome) {
        case Outcome::Leveled:
        case Outcome::Analyzed:
            ++leveled;
            break;
        case Outcome::Copied:
            ++copied;
            break;
        case Outcome::UpToDate:
            ++up_to_date;
            break;
        case Outcome::Skipped:
            ++skipped;
            break;
        case Outcome::Planned:
            break;
        case Outcome::Failed:
        case Outcome::Damaged:
            ++failed;
            break;
        case Outcome::Interrupted:
            ++cancelled;
            break;
    }
}

QString counts_text(const Counts& counts) {
    QStringList parts;
    // What did not happen is not mentioned.
    const auto add = [&](int count, const char* text) {
        if (count) {
            parts.append(Words::tr(text, nullptr, count));
        }
    };
    add(counts.leveled, QT_TRANSLATE_N_NOOP("Words", "%n leveled"));
    add(counts.copied, QT_TRANSLATE_N_NOOP("Words", "%n copied unchanged"));
    add(counts.up_to_date, QT_TRANSLATE_N_NOOP("Words", "%n already leveled"));
    add(counts.skipped, QT_TRANSLATE_N_NOOP("Words", "%n skipped"));
    add(counts.failed, QT_TRANSLATE_N_NOOP("Words", "%n failed"));
    add(counts.cancelled, QT_TRANSLATE_N_NOOP("Words", "%n cancelled"));
    return parts.join(QStringLiteral(", "));
}

}  // namespace desktop
