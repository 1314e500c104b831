#include "leveling/report/index_page.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "leveling/advice/finding_words.h"
#include "leveling/facts/destinations.h"
#include "leveling/publish/verdict.h"
#include "leveling/report/html.h"
#include "leveling/report/page_words.h"
#include "leveling/words/levels.h"

/*
 * The list of all files of a run. What needs a person comes first: failures, then what is not
 * ready, then what has a finding. A click on a heading sorts, a field and a choice filter, by a
 * script of the page's own: thousands of rows, and no network. Without the script it is a table.
 */

namespace quorvane {
namespace {

/** What is to be looked at first has the least rank. */
int rank_of(const FileFacts& facts, const ReportOptions& options) {
    if (is_failure(facts.outcome)) {
        return 0;
    }
    if (facts.outcome == Outcome::Interrupted) {
        return 1;
    }
    if (facts.before && !facts.is_track() && !is_ready(facts, options.destinations)) {
        return 2;
    }
    if (has_problem(facts)) {
        return 3;
    }
    return objections(facts).empty() ? 5 : 4;
}

/** The words by which a choice filters. */
const char* class_of(int rank) {
    constexpr const char* kClasses[] = {"failed", "failed", "not-ready", "found", "found", "fine"};
    return kClasses[rank];
}

/** What became of the file, in the color of that, why, and what was found. */
std::string result_cell(const FileFacts& facts) {
    const bool fine = facts.outcome == Outcome::Leveled || facts.outcome == Outcome::Analyzed ||
                      facts.outcome == Outcome::UpToDate;
    const char* color = fine ? "met" : is_failure(facts.outcome) ? "off" : "soft";
    std::string result = fmt::format("<span class=\"{}\">{}</span>", color, outcome_text(facts));
    if (!facts.cause.empty()) {
        result += fmt::format("<br><span class=\"soft\">{}</span>", escape_html(facts.cause));
    }
    if (const std::string found = objections_text(facts); !found.empty()) {
        result += fmt::format("<br><span class=\"found\">{}</span>", escape_html(found));
    }
    return "<td>" + result + "</td>";
}

/** Ready, or what is missing in few words. */
std::string destination_cell(const FileFacts& facts, const Destination& destination) {
    // A track is not published, so no place is checked for it.
    if (!facts.before || facts.is_track()) {
        return "<td></td>";
    }
    const DestinationCheck check = check_file(destination, facts);
    return fmt::format("<td data-label=\"{}\">{}</td>", destination.name,
                       check.met() ? std::string("<span class=\"met\">✓ ready</span>")
                                   : "<span class=\"off\">✗</span> " + check.words());
}

/** The level now, and small what it was. */
std::string level_cell(const FileFacts& facts,
                       const char* label,
                       const char* unit,
                       double Loudness::*field) {
    if (!facts.before) {
        return "<td class=\"n\"></td>";
    }
    const double now = (facts.after ? *facts.after : *facts.before).*field;
    // Silence has no number; it sorts below everything else.
    return fmt::format("<td class=\"n\" data-label=\"{}, {}\" data-v=\"{:.2f}\">{}</td>", label,
                       unit, std::isfinite(now) ? now : -999.0, level_html(facts, field));
}

/** How far the passages of speech are apart now, and small what that was. */
std::string apart_cell(const FileFacts& facts) {
    if (!facts.speech || facts.speech->state != SpeechState::Measured) {
        return "<td class=\"n\"></td>";
    }
    const double was = facts.speech->span_before_db;
    const double after = facts.speech->span_after_db;
    // A file that was only measured has one number and no arrow.
    const bool is_leveled = facts.after && std::isfinite(after);
    return fmt::format(
        "<td class=\"n\" data-label=\"Speech apart, dB\" data-v=\"{:.2f}\">{}{}</td>",
        is_leveled ? after : was, is_leveled ? "<small>" + shown(was) + " →</small> " : "",
        shown(is_leveled ? after : was));
}

/** A heading that sorts when it is pressed; numeric ones stand to the right. */
std::string heading_cell(const std::string& title, const char* unit) {
    return fmt::format("<th scope=\"col\"{}><button type=\"button\">{}{}</button></th>",
                       *unit ? " class=\"n\"" : "", title,
                       *unit ? fmt::format(" <small>{}</small>", unit) : std::string());
}

/** Until the script at the end has come, only the first rows are laid out. */
constexpr const char* kTools =
    "<script>document.documentElement.classList.add('many')</script>\n"
    "<form class=\"tools\" hidden><label>Find <input type=\"search\" "
    "autocomplete=\"off\"></label>\n"
    "<label>Show <select><option value=\"\">all files</option><option value=\"failed\">failures"
    "</option><option value=\"not-ready\">not ready</option><option value=\"found\">with findings"
    "</option><option value=\"fine\">fine</option></select></label>\n"
    "<output aria-live=\"polite\"></output></form>\n";

constexpr const char* kScript = R"js(<script>
(()=>{const f=document.querySelector('.tools'),t=document.querySelector('.files'),b=t.tBodies[0],
rows=[...b.rows],text=rows.map(r=>r.textContent.toLowerCase()),q=f.querySelector('input'),
s=f.querySelector('select'),o=f.querySelector('output'),more=document.querySelector('.more');
// A browser lays out some hundred rows at once and not thousands: the others wait for a button.
// Paper has no buttons, so it gets all that were found.
let order=[...rows.keys()],limit=200,found=[];
const lay=most=>b.replaceChildren(...found.slice(0,most).map(i=>rows[i]));
const filter=()=>{const w=q.value.toLowerCase();
found=order.filter(i=>(!s.value||rows[i].className===s.value)&&text[i].includes(w));
o.textContent=found.length+' of '+rows.length+' files';more.hidden=found.length<=limit;lay(limit)};
more.onclick=()=>{limit*=5;filter()};
onbeforeprint=()=>lay(found.length);onafterprint=()=>lay(limit);
q.oninput=s.onchange=filter;f.onsubmit=e=>e.preventDefault();
const key=(r,c)=>{const d=r.cells[c],v=d.dataset.v;return v===undefined?d.textContent:+v};
// Made once: a comparison that makes its own takes 20 times as long.
const words=new Intl.Collator('en',{numeric:true});
[...t.tHead.rows[0].cells].forEach((h,c)=>h.firstChild.onclick=()=>{
const up=h.getAttribute('aria-sort')!=='ascending';
for(const x of t.tHead.rows[0].cells)x.removeAttribute('aria-sort');
h.setAttribute('aria-sort',up?'ascending':'descending');
const keyed=rows.map((r,i)=>[key(r,c),i]);
keyed.sort((x,y)=>{const a=x[0],z=y[0];if(a===''||z==='')return (a==='')-(z==='')||x[1]-y[1];
const d=typeof a==='number'&&typeof z==='number'?a-z:words.compare(a,z);
return (up?d:-d)||x[1]-y[1]});
order=keyed.map(k=>k[1]);filter()});
f.hidden=false;filter();document.documentElement.classList.remove('many')})();
</script>
)js";

}  // namespace

IndexRow index_row(const FileFacts& facts, const std::string& page, const ReportOptions& options) {
    // A mix has no input of its own.
    const bool is_mix = facts.conversation && facts.conversation->mix;
    const std::string name = escape_html(is_mix ? facts.output : facts.input);
    const int rank = rank_of(facts, options);
    std::string row = fmt::format(
        "<tr class=\"{}\"><th scope=\"row\">{}</th>", class_of(rank),
        page.empty() ? name : fmt::format("<a href=\"{}\">{}</a>", link_to(page), name));
    row += result_cell(facts);
    for (const std::string& word : options.destinations) {
        row += destination_cell(facts, *find_destination(word));
    }
    row += level_cell(facts, "Loudness", "LUFS", &Loudness::integrated_lufs);
    row += level_cell(facts, "True peak", "dBTP", &Loudness::true_peak_dbtp);
    return {rank, row + apart_cell(facts) + "</tr>\n"};
}

std::string index_page(const FactsList& files,
                       std::vector<IndexRow> rows,
                       const std::vector<std::string>& conversations,
                       const ReportOptions& options) {
    // Stable: files of one rank keep their order.
    std::stable_sort(rows.begin(), rows.end(), [](const IndexRow& one, const IndexRow& other) {
        return one.rank < other.rank;
    });
    std::string head = heading_cell("File", "") + heading_cell("Result", "");
    for (const std::string& word : options.destinations) {
        head += heading_cell(find_destination(word)->name, "");
    }
    head += heading_cell("Loudness", "LUFS") + heading_cell("True peak", "dBTP") +
            heading_cell("Speech apart", "dB");
    // The page has the gravest color of its files.
    VerdictColor color = VerdictColor::Ready;
    for (const FileFacts& facts : files) {
        color = std::max(color, verdict_color(facts, options));
    }
    std::string link;
    for (std::size_t i = 0; i < conversations.size(); ++i) {
        const std::string which =
            conversations.size() == 1 ? "The conversation" : fmt::format("Conversation {}", i + 1);
        link += fmt::format("<p><a href=\"{}\">{}, a lane for each speaker</a></p>\n",
                            link_to(conversations[i]), which);
    }
    std::string text = fmt::format(
        "<h1>{} file{}</h1>\n{}<p class=\"soft\">What needs you comes first. Levels before and "
        "after; "
        "the last column is how far passages of speech are apart.</p>\n{}{}<table class=\"stack "
        "files\">\n<thead><tr>{}</tr>"
        "</thead>\n<tbody>\n",
        files.size(), files.size() == 1 ? "" : "s",
        verdict_html(verdict(files, options.destinations, Face::Page), options, color), link,
        kTools, head);
    for (const IndexRow& row : rows) {
        text += row.html;
    }
    return text + "</tbody>\n</table>\n<button type=\"button\" class=\"more\" hidden>Show more" +
           "</button>\n" + footer() + kScript;
}

}  // namespace quorvane
