#include "leveling/advice/advice_table.h"

#include <algorithm>

namespace quorvane {

const std::vector<Advice>& advice_table() {
    static const std::vector<Advice> table = {
        {"clipped", "Clipped before leveling", 1, "{value} % of the recording is clipped",
         "The tops of the sound wave are cut flat: the recorder was given more level than it can "
         "hold.",
         "Clipping is heard as a harsh crackle on loud words. Leveling cannot bring back what was "
         "cut off, and a lossy encoder makes it worse.",
         "Repair it with a declipper first, then level the repaired file.",
         "Repair it with a declipper first, then drop the repaired file here.",
         "Repair it with a declipper, then level it again.",
         "Set the gain so that the loudest laugh stays below -6 dBFS, or record in 32-bit float. "
         "Normal speech then lies around -18 dBFS."},
        {"side-silent", "One side is silent", 1, "the {detail} side is silent",
         "The recording is stereo, and one of its two sides holds no sound.",
         "Who listens with headphones hears the voice in one ear; on a single speaker it is "
         "quieter than meant.",
         "Make a mono file of the side that has sound, then level that: ffmpeg -i FILE -af "
         "\"pan=mono|c0=c0\" MONO.wav (c0 is the left side, c1 the right).",
         "Make a mono file of the side that has sound in an editor, then drop that here.",
         "Make a mono file of the side that has sound, then level it again.",
         "Record a single microphone as mono, or check both meters before you begin."},
        {"side-quiet", "One side is much quieter", 1,
         "the {detail} side is {value} dB quieter than the other",
         "One of the two sides of the recording is much quieter than the other.",
         "With headphones the voice pulls to one ear. Leveling keeps the balance of the sides as "
         "it is.",
         "Bring both sides to one level in an editor, or make a mono file, then level that.",
         "Bring both sides to one level in an editor, or make a mono file, then drop it here.",
         "Bring both sides to one level, or make a mono file, then level it again.",
         "Set the gains of both inputs with the same voice at the same distance; for one voice "
         "record mono."},
        {"out-of-phase", "The sides cancel each other in mono", 0,
         "the sides are out of phase; in mono {value} dB are lost",
         "The two sides move against each other, so that they cancel when they are mixed to one.",
         "A phone, a kitchen radio or a smart speaker plays mono: there the voice becomes thin or "
         "disappears.",
         "Invert one side in an editor and level that: ffmpeg -i FILE -af \"aeval=val(0)|-val(1)\" "
         "FIXED.wav.",
         "Invert one side in an editor, then drop the file here.",
         "Invert one side, then level it again.",
         "Look for a balanced cable that is wired the wrong way round or a phase switch (Ø) that "
         "is "
         "pressed on one input."},
        {"dc-offset", "The wave is off its zero line", 1,
         "the wave lies {value} % of full scale off its zero line",
         "The middle of the sound wave is not at zero, which a faulty input or sound card does.",
         "It takes room from the loudest peaks and clicks where the recording is cut. Leveling "
         "takes it out with its high-pass filter.",
         "", "", "",
         "Try another input, cable or sound card; an input that does this is often faulty."},
        {"hum", "Mains hum", 1, "mains hum ({detail}) is {against} the speech",
         "A steady tone of the mains, 50 or 60 Hz, and its multiples lie under the voice.",
         "Headphones play it clearly, and where a quiet voice is raised the hum comes up with it.",
         "Take it out with a hum filter first, then level the filtered file.",
         "Take it out with a hum filter first, then drop the filtered file here.",
         "Take it out with a hum filter, then level it again.",
         "Use balanced cables, run the recorder on its battery, and keep cables away from power "
         "supplies and dimmers."},
        {"noise", "A high noise floor", 1, "its noise is only {value} dB under the speech",
         "Hiss, a fan or traffic is heard in the pauses, close to the level of the speech.",
         "Listeners tire of it, encoders spend bits on it, and where a quiet voice is raised the "
         "noise comes up with it.",
         "Reduce the noise in an editor first, then level that file.",
         "Reduce the noise in an editor first, then drop that file here.",
         "Reduce the noise, then level it again.",
         "Come closer to the microphone (a hand's width), turn its gain up, and switch off what "
         "hums or blows in the room."},
        {"rumble", "Wind or rumble", 1, "wind or rumble is {against} the speech",
         "Low rumble of wind, handling, steps or traffic lies below the voice.",
         "Large speakers and cars play it as thuds. Leveling takes most of it out with its "
         "high-pass filter.",
         "", "", "",
         "Put a foam or fur wind shield on the microphone, hang it in a shock mount, and switch on "
         "its low-cut filter."},
        {"long-pauses", "Long pauses", 1, "it has {value} {unit} of long pauses",
         "No one speaks for minutes.",
         "Listeners take a long silence for the end, or for a fault. Leveling keeps such pauses "
         "down, so their noise is not raised.",
         "Cut them in an editor if they are not meant.",
         "Cut them in an editor if they are not meant.",
         "Cut them in an editor if they are not meant.", "Stop the recorder in breaks."},
        {"dropouts", "Dropouts", 0, "the sound breaks off or jumps at {value} places",
         "The sound stops for a moment or jumps inside speech: data were lost while it was "
         "recorded "
         "or sent.",
         "It is heard as clicks, and syllables are missing. Leveling cannot bring them back.",
         "Ask for the local recording of the speaker, or repair the places in an editor.",
         "Ask for the local recording of the speaker, or repair the places in an editor.",
         "Ask for the local recording of the speaker, or repair the places in an editor.",
         "Record each speaker on their own computer and not the call; close other programs and use "
         "a larger audio buffer."},
        {"spill", "Another voice spills in", 1,
         "another voice seems to spill in, {value} dB under the main one",
         "Beside the near voice a second one is heard from further away, as on the microphone of "
         "one guest when another speaks.",
         "Leveling takes a distant voice for a quiet one and raises it, so that the room is heard.",
         "Give all microphones of one talk together where you have them.",
         "Give all microphones of one talk together where you have them.",
         "Level all microphones of one talk together.",
         "Seat guests further apart, each close to a microphone (a hand's width) that points away "
         "from the others."},
        {"music-bed", "Music under the voice", 1, "music or another sound is {against} the voice",
         "Music or a steady background plays under the speech.",
         "Leveling raises quiet speech and the music with it, so the music may swell and fade with "
         "the voice.",
         "Level the voice alone and add the music afterwards.",
         "Level the voice alone and add the music afterwards.",
         "Level the voice alone and add the music afterwards.",
         "Record and level the voice by itself; music comes last."},
        {"reverberant", "Much room", 1, "the room is very reverberant ({value} s)",
         "Much of the sound comes from the walls of the room and not from the speaker.",
         "Words blur, in cars and on small speakers most of all. Leveling raises the room together "
         "with quiet words.",
         "Reduce the reverberation in an editor first, if you can.",
         "Reduce the reverberation in an editor first, if you can.",
         "Reduce the reverberation, if you can.",
         "Come closer to the microphone (a hand's width), and record among curtains, carpets and "
         "full shelves, away from bare walls."},
        {"low-bit-rate", "A low bit rate", 0, "its sound is stored at only {value} {unit}",
         "The file was made small by a lossy codec, so details of the sound are missing.",
         "Voices sound watery or dull, and every further encoding makes it worse.",
         "Level the original recording if there is one.",
         "Level the original recording if there is one.",
         "Level the original recording if there is one.",
         "Record and keep WAV or FLAC; make the small file last."},
        {"short", "Very short", 1, "the {detail} is only {value} s long",
         "The recording is so short that its loudness says little.",
         "Levels and verdicts come from averages over seconds; of a short clip they may be off.",
         "Join short clips before you level them.", "Join short clips before you level them.",
         "Join short clips before you level them.", "Record some seconds more than you need."},
        {"damaged", "Cut short or damaged", 1, "{value} {unit} of the sound is missing",
         "A part of the file is missing or cannot be decoded; silence stands in its place.",
         "Words are missing, and the end may be.",
         "Copy the file again from where it came from; --strict fails such files.",
         "Copy the file again from where it came from.",
         "Copy the file again from where it came from.",
         "Wait until a recorder or a copy has finished before the card or the cable is removed."},
        {"raised", "It was very quiet", 1, "it was so quiet that it was raised by {value} dB",
         "The recording was far below the usual level and was raised before leveling.",
         "The noise of microphone and recorder is raised as much as the voice.",
         "Listen to the pauses; reduce their noise in an editor if it disturbs.",
         "Listen to the pauses; reduce their noise in an editor if it disturbs.",
         "Listen to the pauses; reduce their noise in an editor if it disturbs.",
         "Turn up the gain or come closer, until normal speech lies around -18 dBFS on the meter."},
    };
    return table;
}

// Null for a code of a later version.
const Advice* find_advice(const std::string& code) {
    const auto& table = advice_table();
    const auto found = std::find_if(table.begin(), table.end(),
                                    [&](const Advice& advice) { return advice.code == code; });
    return found == table.end() ? nullptr : &*found;
}

std::vector<std::string> advice_codes() {
    std::vector<std::string> codes;
    for (const Advice& advice : advice_table()) {
        codes.emplace_back(advice.code);
    }
    return codes;
}

}  // namespace quorvane
