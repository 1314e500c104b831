#include "desktop/model/preparation_text.h"

#include <QCoreApplication>
#include <QLocale>

namespace desktop {
namespace {

using quorvane::Deed;

/** The texts of this file stand in one context of the translations. */
struct PreparationText {
    Q_DECLARE_TR_FUNCTIONS(PreparationText)
};

QString decibels(double value, int decimals) {
    return QLocale().toString(value, 'f', decimals);
}

QString text_of(const quorvane::Done& done) {
    switch (done.deed) {
        case Deed::Raised:
            return PreparationText::tr("raised by %1 dB before leveling, its noise with it")
                .arg(decibels(done.amount, 1));
        case Deed::KeptPausesDown:
            return PreparationText::tr("%n long pause(s) (%1 min) kept down", nullptr, done.count)
                .arg(QString::fromStdString(quorvane::minutes_text(done.amount)));
        case Deed::TookRumbleOut:
            return PreparationText::tr("rumble louder than the voices taken out below 110 Hz");
        case Deed::BroughtBackgroundUp:
            return PreparationText::tr(
                       "its background (music, noise or reverberation) is %1 dB "
                       "under the quietest voice and comes up with it")
                .arg(decibels(done.amount, 0));
        case Deed::LeftEvenAlone:
            return PreparationText::tr("even already, so it got one constant gain");
        case Deed::GaveEachPhraseAGain:
            return PreparationText::tr("a gain for each of %n phrase(s)", nullptr, done.count);
        case Deed::Dithered:
            return PreparationText::tr("dithered once, at the end");
    }
    return {};
}

}  // namespace

QStringList preparation_texts(const std::vector<quorvane::Done>& deeds) {
    QStringList texts;
    for (const quorvane::Done& done : deeds) {
        texts.append(text_of(done));
    }
    return texts;
}

}  // namespace desktop
