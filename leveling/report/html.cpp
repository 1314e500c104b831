#include "leveling/report/html.h"

#include <fmt/format.h>

#include "leveling/words/text.h"

namespace quorvane {
namespace {

/*
 * One style for all pages, in the page itself: a report is mailed about and opened years later,
 * where nothing else may be there. The fonts are the reader's own. Two colors tell before from
 * after, two others up from down, with a dark set of each. Below 860 pixels tables become stacks of
 * labelled lines.
 */
constexpr const char* kStyle = R"css(
:root{color-scheme:light dark;--paper:#fff;--panel:#f4f6f8;--ink:#1b2430;--soft:#566272;--line:#d5dbe2;
--before:#6b7686;--after:#0a5fb8;--up:#12876f;--down:#a8510f;--good:#0f7a43;--bad:#b3261e}
@media screen and (prefers-color-scheme:dark){:root{--paper:#12161c;--panel:#1b212a;--ink:#e6ebf1;--soft:#a3afbd;
--line:#333d4a;--before:#9ba7b5;--after:#63b0ff;--up:#3fc7a8;--down:#f0a05a;--good:#5fd08f;--bad:#ff8a80}}
*{box-sizing:border-box}
body{margin:0;background:var(--paper);color:var(--ink);font:16px/1.5 system-ui,-apple-system,"Segoe UI",
Roboto,"Helvetica Neue",sans-serif;overflow-wrap:anywhere}
main{max-width:1120px;margin:0 auto;padding:28px 20px 56px}
h1{font-size:1.55rem;line-height:1.25;margin:0 0 4px}h2{font-size:1.12rem;margin:36px 0 10px}
p{margin:6px 0}.soft{color:var(--soft)}a{color:var(--after)}
.banner{border-left:4px solid var(--down);background:var(--panel);padding:8px 14px;margin:14px 0}
.numbers{display:grid;grid-template-columns:repeat(auto-fill,minmax(240px,1fr));gap:12px}
.number{background:var(--panel);border-radius:8px;padding:12px 14px}
.number h3{font-size:.84rem;font-weight:600;margin:0;color:var(--soft)}
.number .value{font-size:1.35rem;font-weight:650;font-variant-numeric:tabular-nums;margin:2px 0}
.number .value small{font-size:.8rem;font-weight:400;color:var(--soft)}
.number p{font-size:.86rem;margin:0;color:var(--soft)}
figure{margin:0 0 18px}figcaption{font-size:.9rem;color:var(--soft);margin-bottom:6px}
.key{white-space:nowrap;margin-right:14px}
.key i{display:inline-block;width:18px;height:10px;border-radius:2px;margin-right:5px}
.plot{position:relative;margin-left:36px}
.plot svg{display:block;width:100%;border:1px solid var(--line);border-radius:4px;background:var(--panel)}
.loudness svg{height:220px}.waveform svg{height:120px}.lane svg{height:84px}
.waves{position:relative}.plot,.times{margin-right:36px}
.waves .plot+.plot{margin-top:10px}.plot path.wave{stroke-width:.5;opacity:.85}
.plot .wave.b{fill:var(--before);stroke:var(--before)}.plot .wave.a{fill:var(--after);stroke:var(--after)}
.panel{position:absolute;left:8px;top:6px;font-size:.75rem;font-weight:600;padding:0 5px;border-radius:4px;background:var(--paper)}
.pins{position:relative;height:20px;margin:0 36px}.pin{position:absolute;top:0;width:14px;height:18px;margin-left:-7px;
padding:0;border:0;background:none;cursor:pointer}.pin::before{content:"";position:absolute;left:2px;top:4px;border:5px solid transparent;
border-top:9px solid var(--before)}.pin.problem::before{border-top-color:var(--bad)}.pin.warning::before{border-top-color:var(--down)}
.pin::after{content:"";position:absolute;left:7px;top:14px;height:258px;border-left:1px dashed var(--before);pointer-events:none}
.pin.problem::after{border-color:var(--bad)}.pin.warning::after{border-color:var(--down)}.pin:disabled{cursor:default}
.pin:focus-visible{outline:3px solid var(--down)}.over{position:absolute;inset:0 36px;pointer-events:none}
.over i{position:absolute;bottom:0;top:0}.pins~.over .head{top:20px}.over .part{background:var(--ink);height:4px;top:auto;border-radius:2px}
.over .head{border-left:2px solid var(--ink)}
.plot path{fill:none;stroke-width:2;vector-effect:non-scaling-stroke;stroke-linejoin:round}
.plot line{stroke:var(--line);vector-effect:non-scaling-stroke}
.plot line.zero{stroke:var(--soft)}
.plot .b{stroke:var(--before)}.plot .a{stroke:var(--after)}.plot .g{stroke:var(--ink)}
.plot .up{fill:var(--up)}.plot .down{fill:var(--down)}.plot .none{fill:var(--before)}
.y.right{right:auto;left:100%;padding:0 0 0 6px}.y{position:absolute;right:100%;padding-right:6px;transform:translateY(-50%);font-size:.75rem;
color:var(--soft);font-variant-numeric:tabular-nums;white-space:nowrap}
.times{position:relative;height:1.4em;margin-left:36px;font-size:.75rem;color:var(--soft)}
.times span{position:absolute;white-space:nowrap;transform:translateX(-50%)}
.times span:first-child{transform:none}.times span:last-child{transform:translateX(-100%)}
table{border-collapse:collapse;width:100%;font-size:.92rem}
th{text-align:left;font-weight:600;color:var(--soft)}
th,td{padding:6px 10px 6px 0;border-bottom:1px solid var(--line);vertical-align:top}
td.n,th.n{text-align:right;font-variant-numeric:tabular-nums;white-space:nowrap}
.files{font-size:.88rem}.files thead th{white-space:nowrap;overflow-wrap:normal;position:sticky;top:0;background:var(--paper)}
.files thead button{font:inherit;color:inherit;background:none;border:0;padding:4px 0;cursor:pointer}
.files thead button:hover{text-decoration:underline}.files thead button:focus-visible{outline:3px solid var(--down)}
.files [aria-sort=ascending] button::after{content:" ▲"}.files [aria-sort=descending] button::after{content:" ▼"}
.files tbody th{min-width:11em;max-width:24em}.files td{overflow-wrap:normal}.files td.n small,.files thead small{color:var(--soft);font-weight:400}
.many .files tbody tr:nth-child(n+201){display:none}.more{font:inherit;color:var(--after);background:none;border:1px solid var(--line);
border-radius:6px;padding:6px 14px;margin:12px 0;cursor:pointer}.more[hidden]{display:none}.more:focus-visible{outline:3px solid var(--down)}
span.found,p.found{color:var(--down)}.tools{display:flex;flex-wrap:wrap;align-items:center;gap:8px 20px;margin:14px 0}.tools[hidden]{display:none}
.tools input,.tools select{font:inherit;color:inherit;background:var(--panel);border:1px solid var(--line);border-radius:6px;padding:4px 8px}
.findings{list-style:none;padding:0;margin:0}.findings li{border-left:4px solid var(--before);background:var(--panel);
padding:8px 14px;margin:0 0 10px;border-radius:0 8px 8px 0}.findings .problem{border-color:var(--bad)}.findings .warning{border-color:var(--down)}
.findings b{text-transform:uppercase;font-size:.74rem;letter-spacing:.05em;margin-right:6px}.findings .problem b{color:var(--bad)}
.mark{font:inherit;font-size:.86rem;color:var(--after);background:none;border:1px solid var(--line);border-radius:5px;padding:1px 7px;cursor:pointer}
.mark:disabled{color:var(--soft);cursor:default}.mark:focus-visible{outline:3px solid var(--down)}
.met{color:var(--good);font-weight:600}.off{color:var(--bad);font-weight:600}
.swatch{display:inline-block;width:10px;height:10px;border-radius:2px;margin-right:6px}
.swatch.up{background:var(--up)}.swatch.down{background:var(--down)}.swatch.none{background:var(--before)}
summary{cursor:pointer}footer{margin-top:40px;font-size:.84rem;color:var(--soft)}
.destinations thead th:first-child{width:25%}
.passages td{white-space:nowrap}.lane h2{margin:22px 0 2px}.lane p{margin:2px 0}.lane small{font-weight:400;color:var(--soft)}
@media (max-width:640px){main{padding:18px 14px 40px}.passages{font-size:.8rem}.passages th{white-space:normal!important;overflow-wrap:normal}.plot,.times,.pins,.over{margin-left:26px;margin-right:26px}.over{inset:0 26px;margin:0}.seek{flex-basis:70%}.loudness svg{height:200px}}
@media screen and (max-width:860px){.stack thead{display:none}.stack tr{display:block;padding:10px 0;border-bottom:1px solid var(--line)}
.stack td,.stack th[scope=row]{display:block;border:0;padding:1px 0;text-align:left!important}
.stack td[data-label]::before{content:attr(data-label) " ";color:var(--soft)}}
.verdict{font-size:1.15rem;font-weight:600;margin:10px 0 14px;padding:12px 16px;border-radius:8px;background:var(--panel);
border-left:4px solid var(--after)}.verdict.ready{border-color:var(--good)}.verdict.but{border-color:var(--down)}.verdict.missing{border-color:var(--bad)}
.back{font-size:.9rem;margin:0 0 10px}
td b,th[scope=row]{color:var(--ink);font-weight:600}.elsewhere td,.elsewhere th[scope=row]{color:var(--soft);font-weight:400}
.remedy{white-space:nowrap;color:var(--soft)}code{font:.92em ui-monospace,Menlo,Consolas,monospace;background:var(--panel);
padding:1px 5px;border-radius:4px}
.player{display:flex;flex-wrap:wrap;align-items:center;gap:10px 16px;background:var(--panel);border-radius:8px;padding:12px 14px}
.player[hidden]{display:none}.player fieldset{border:0;padding:0;margin:0;display:flex}
.player legend{position:absolute;width:1px;height:1px;overflow:hidden;clip-path:inset(50%)}
.play{font:inherit;font-weight:600;min-width:6em;padding:7px 16px;border:0;border-radius:6px;background:var(--after);color:var(--paper);cursor:pointer}
.player label{cursor:pointer}.player label input{position:absolute;opacity:0}
.player label span{display:block;padding:6px 16px;border:1px solid var(--line)}
.player label:first-of-type span{border-radius:6px 0 0 6px}.player label:last-of-type span{border-radius:0 6px 6px 0;border-left:0}
.player input:checked+span{background:var(--ink);color:var(--paper);border-color:var(--ink)}
.player input:focus-visible+span,.play:focus-visible,.seek:focus-visible{outline:3px solid var(--down);outline-offset:2px}
.seek{flex:1 1 140px;min-width:120px;accent-color:var(--after)}.player output{font-variant-numeric:tabular-nums}
@page{margin:14mm 12mm}
@media print{html,body{font-size:12px}main{max-width:none;padding:0}.listen,.back,.over,.marks,.more,.tools label{display:none}
.files thead th{position:static}.files button::after{content:none!important}tr,figure,.number,.findings li{break-inside:avoid}h2{break-after:avoid}
.key i,.swatch,svg{print-color-adjust:exact}}
)css";

}  // namespace

std::string escape_html(const std::string& text) {
    std::string result;
    for (char c : printable(text)) {
        // The five that mean something in text or in a quoted attribute.
        switch (c) {
            case '&':
                result += "&amp;";
                break;
            case '<':
                result += "&lt;";
                break;
            case '>':
                result += "&gt;";
                break;
            case '"':
                result += "&quot;";
                break;
            case '\'':
                result += "&#39;";
                break;
            default:
                result += c;
        }
    }
    return result;
}

std::string html_page(const std::string& title, const std::string& body) {
    // The policy forbids every request: even a name that got through unescaped could load nothing.
    return fmt::format(
        "{}\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src "
        "'unsafe-inline'; script-src 'unsafe-inline'; media-src data:\">\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
        "<title>{}</title>\n<style>{}</style>\n</head>\n<body>\n<main>\n{}</main>\n</body>\n</"
        "html>\n",
        kReportStart, escape_html(title), kStyle, body);
}

}  // namespace quorvane
