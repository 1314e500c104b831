#include "leveling/report/listen.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <vector>

#include "leveling/advice/advice_table.h"
#include "leveling/report/excerpt_sound.h"
#include "leveling/report/heard.h"
#include "leveling/report/html.h"
#include "leveling/words/text.h"

/*
 * Some seconds of before and after, side by side in the page, so that everybody hears what the
 * numbers say: where the gains differ most, and short pieces at the gravest findings. The louder of
 * two always seems the better one: both are brought to the same loudness, and one switch changes
 * between them at the same moment of the recording. The sound is in the page itself, as text, about
 * 180 KB for both.
 */

namespace quorvane {
namespace {

// Encoding them is most of what a page costs: 0.15 s of processor time for stereo.
constexpr double kAllSeconds = 8;
constexpr double kPlaceSeconds = 1.5;
constexpr double kLeadSeconds = 0.3;  // in front of the place
constexpr std::size_t kMostPlaces = 2;

/** A stretch and why it is in the page. */
struct Piece {
    Stretch stretch;
    std::string why;  // a finding's title; empty: the voices differ most there
};

bool holds(const Stretch& stretch, double at_s) {
    return at_s >= stretch.from_s && at_s < stretch.from_s + stretch.seconds;
}

/** The first place of each finding, the gravest findings first. */
std::vector<Piece> pieces_at_findings(const FileFacts& facts) {
    std::vector<Piece> pieces;
    for (const Finding& finding : facts.findings) {
        if (finding.places.empty() || pieces.size() == kMostPlaces) {
            continue;
        }
        const double latest_s = std::max(facts.duration_s() - kPlaceSeconds, 0.0);
        const double from_s =
            std::clamp(finding.places.front().from_s - kLeadSeconds, 0.0, latest_s);
        const Advice* advice = find_advice(finding.code);
        pieces.push_back({{from_s, kPlaceSeconds}, advice ? advice->title : finding.code});
    }
    return pieces;
}

/** In the order in which they are played. */
std::vector<Piece> pieces_of(const FileFacts& facts) {
    const std::vector<Piece> places = pieces_at_findings(facts);
    const double main_s = kAllSeconds - kPlaceSeconds * static_cast<double>(places.size());
    const double from_s = most_different_s(facts, main_s);
    std::vector<Piece> pieces = {{{from_s, std::min(main_s, facts.duration_s() - from_s)}, ""}};
    for (const Piece& place : places) {
        const bool is_there = std::any_of(pieces.begin(), pieces.end(), [&](const Piece& piece) {
            return holds(piece.stretch, place.stretch.from_s + kLeadSeconds);
        });
        if (!is_there) {
            pieces.push_back(place);
        }
    }
    return pieces;
}

/** "From 1:02 to 1:08, where the voices differ most; then 2:40 (Clipped before leveling)." */
std::string words_of_pieces(const std::vector<Piece>& pieces) {
    const Stretch& first = pieces.front().stretch;
    std::string text =
        fmt::format("From {} to {}, where the voices differ most", clock_text(first.from_s),
                    clock_text(first.from_s + first.seconds));
    for (std::size_t i = 1; i < pieces.size(); ++i) {
        text += fmt::format("{} {} ({})", i == 1 ? "; then" : ",",
                            clock_text(pieces[i].stretch.from_s + kLeadSeconds), pieces[i].why);
    }
    return text + ".";
}

/** "12.00,5.00;40.00,1.50": from and length of each. */
std::string data_of_pieces(const std::vector<Piece>& pieces) {
    std::string text;
    for (const Piece& piece : pieces) {
        text += fmt::format("{}{:.2f},{:.2f}", text.empty() ? "" : ";", piece.stretch.from_s,
                            piece.stretch.seconds);
    }
    return text;
}

std::string audio_element(const char* label, const std::string& data) {
    return fmt::format(
        "<p>{0} <audio controls preload=\"auto\" aria-label=\"{0}\" src=\"{1}\"></audio></p>\n",
        label, data);
}

/** Without scripts, the audio elements show their own controls. */
constexpr const char* kScript = R"js(<script>
(()=>{const s=document.querySelector('.listen'),q=x=>s.querySelector(x),a=[...s.querySelectorAll('audio')],
p=q('.play'),k=q('.seek'),o=q('output'),w=[...document.querySelectorAll('.over')];let now=1,begin=0;
const parts=s.dataset.parts.split(';').map(x=>{const[from,len]=x.split(',').map(Number),part={from,len,begin};
begin+=len;return part});k.max=begin;
const clock=t=>{t=Math.round(t);return Math.floor(t/60)+':'+String(t%60).padStart(2,'0')};
// From a moment of the excerpts to one of the recording, and back; undefined where none holds it.
const moment=t=>{const x=parts.filter(x=>x.begin<=t).pop();return x.from+Math.min(t-x.begin,x.len)};
const place=t=>{const x=parts.find(x=>t>=x.from-.01&&t<x.from+x.len);return x&&x.begin+Math.max(t-x.from,0)};
// In each drawing over time; they have the same length.
const share=t=>100*t/w[0].dataset.length+'%';
const bars=(css,from,len)=>w.map(over=>{const e=document.createElement('i');e.className=css;over.append(e);
e.style.left=share(from);e.style.width=len===undefined?'':share(len);return e});
parts.forEach(x=>bars('part',x.from,x.len));const heads=bars('head',0);
const show=()=>{const t=moment(a[now].currentTime);p.textContent=a[now].paused?'Play':'Pause';
k.value=a[now].currentTime;k.setAttribute('aria-valuetext',clock(t));o.textContent=clock(t);
heads.forEach(e=>{e.style.left=share(t);e.hidden=a[now].paused&&k.value==0})};
a.forEach((x,i)=>{x.parentNode.hidden=true;x.ontimeupdate=x.onplay=x.onpause=()=>{if(i===now)show()}});
p.onclick=()=>{a[now].paused?a[now].play():a[now].pause()};
k.oninput=()=>{a[now].currentTime=k.value;show()};
s.querySelectorAll('[type=radio]').forEach(r=>r.onchange=()=>{const was=a[now],on=!was.paused;was.pause();
now=+r.value;a[now].currentTime=was.currentTime;if(on)a[now].play();show()});
document.querySelectorAll('[data-at]').forEach(m=>{const at=place(+m.dataset.at);
if(at===undefined)return;m.disabled=false;m.onclick=()=>{a[now].currentTime=at;a[now].play();show()}});
q('.player').hidden=false;show()})();
</script>
)js";

}  // namespace

std::string listening_part(const FileFacts& facts, const StretchReader& read) {
    if (facts.outcome != Outcome::Leveled || !facts.leveling) {
        return "";
    }
    const std::vector<Piece> pieces = pieces_of(facts);
    std::vector<Stretch> stretches;
    stretches.reserve(pieces.size());
    for (const Piece& piece : pieces) {
        stretches.push_back(piece.stretch);
    }
    std::string before;
    std::string after;
    try {
        Samples was = read(facts.input, stretches);
        Samples is = read(facts.output, stretches);
        make_equally_loud(was, is);
        before = audio_data_of(was);
        after = audio_data_of(is);
        // A report without sound is still a report; that the files could be read was shown before.
    } catch (const std::exception&) {
        return "";
    }
    return fmt::format(
        "<section class=\"listen\" data-parts=\"{}\" aria-labelledby=\"listen\">\n<h2 "
        "id=\"listen\">Listen</h2>\n"
        "<p class=\"soft\">{} Both at the same loudness, so that only the leveling is heard.</p>\n"
        "<div class=\"player\" hidden>\n<button type=\"button\" class=\"play\">Play</button>\n"
        "<fieldset><legend>Version</legend>\n"
        "<label><input type=\"radio\" name=\"version\" value=\"0\"><span>Before</span></label>"
        "<label><input type=\"radio\" name=\"version\" value=\"1\" checked><span>After</span>"
        "</label></fieldset>\n"
        "<input type=\"range\" class=\"seek\" min=\"0\" max=\"{:g}\" step=\"0.1\" value=\"0\" "
        "aria-label=\"Position\">\n<output>0:00</output>\n</div>\n{}{}</section>\n",
        data_of_pieces(pieces), escape_html(words_of_pieces(pieces)), kAllSeconds,
        audio_element("Before", before), audio_element("After", after));
}

std::string listening_script() {
    return kScript;
}

}  // namespace quorvane
