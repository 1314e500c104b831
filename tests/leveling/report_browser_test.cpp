#include <gmock/gmock.h>

#include <algorithm>

#include "leveling/report/report.h"
#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

constexpr const char* kBrowser =
    "timeout 300 chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run "
    "--disable-background-networking --disable-component-update --disable-sync "
    "--allow-file-access-from-files --autoplay-policy=no-user-gesture-required";

std::string dom_of(const TempDir& dir, const std::string& options) {
    return run_program(std::string(kBrowser) + " --user-data-dir=" + dir / "profile" + " " +
                       options + " --dump-dom file://" + dir / "look.html")
        .out;
}

/** What the script of the page wrote into its element r, up to the full stop. */
std::string result_in(const std::string& dom) {
    const std::size_t start = dom.find("<p id=\"r\">");
    return start == std::string::npos ? "nothing in: " + dom
                                      : dom.substr(start + 10, dom.find('.', start) - start - 10);
}

/**
 * What the page is like in a frame of that width: found elements, and whether anything sticks out.
 */
std::string looked_at(const TempDir& dir, const std::string& page, int width) {
    write_text(
        dir / "look.html",
        "<body><iframe id=f src='" + page + "' style='border:0;width:" + std::to_string(width) +
            "px;height:2000px'></iframe><p id=r></p><script>f.onload=()=>{"
            "const d=f.contentDocument,e=d.documentElement,n=s=>d.querySelectorAll(s).length;"
            "const wide=[...d.querySelectorAll('body *')].filter(x=>{"
            "const b=x.getBoundingClientRect();return !x.closest('svg')&&"
            "(b.right>e.clientWidth+1||b.left<-1)}).map(x=>x.tagName+'.'+x.className);"
            "const tall=[...d.querySelectorAll('.times span')].filter("
            "x=>x.getBoundingClientRect().height>24).length;"
            "r.textContent=['width',e.scrollWidth-e.clientWidth,'wide',wide.join(),"
            "'tall',tall,'waves',n('.wave'),'curves',n('.loudness path'),'spans',n('.loudness "
            "rect'),"
            "'gain',n('.waveform .g'),'numbers',n('.number'),"
            "'places',n('.destinations tbody tr'),'rows',n('.passages tbody tr'),"
            "'files',n('.files tbody tr')].join(' ')+'.';}</script>");
    return result_in(dom_of(dir, "--virtual-time-budget=5000"));
}

/** The first line that the page's script logs. Sound plays in real time, which the other way skips.
 */
std::string logged_by(const TempDir& dir) {
    const std::string log = dir / "log";
    run_program(std::string(kBrowser) + " --user-data-dir=" + dir / "profile" +
                " --autoplay-policy=no-user-gesture-required --enable-logging=stderr file://" +
                dir / "look.html" + " >" + log +
                " 2>&1 & for i in $(seq 2400); do grep -q 'heard: .*\\.' " + log +
                " && break; sleep 0.1; done; kill $!");
    const std::string text = read_text(log);
    const std::size_t start = text.find("heard: ");
    return start == std::string::npos ? "nothing in: " + text
                                      : text.substr(start + 7, text.find('.', start) - start - 7);
}

/** Presses play, then the switch to the sound before; tells what plays after each. */
std::string listened_to(const TempDir& dir, const std::string& page) {
    write_text(dir / "look.html",
               "<body><iframe id=f src='" + page +
                   "'></iframe><script>f.onload=async()=>{"
                   "const d=f.contentDocument,a=[...d.querySelectorAll('audio')];"
                   "const wait=ok=>new Promise(done=>{const t=setInterval(()=>{if(ok()){"
                   "clearInterval(t);done()}},50)});"
                   "const told=[];"
                   "d.querySelector('.play').click();await wait(()=>a[1].currentTime>0.5);"
                   "told.push('before',!a[0].paused,'after',!a[1].paused);"
                   "d.querySelector('[value=\"0\"]').click();await wait(()=>a[0].currentTime>0.8);"
                   "told.push('then',!a[0].paused,!a[1].paused);"
                   "d.querySelector('.play').click();await wait(()=>a[0].paused);"
                   "told.push('seconds',Math.round(a[0].duration),Math.round(a[1].duration),"
                   "d.querySelector('.play').textContent);"
                   "console.log('heard: '+told.join(' ')+'.')}</script>");
    return logged_by(dir);
}

TEST(ReportInABrowser, HasItsPartsAndNothingSticksOut) {
    if (run_program("command -v chromium").status != 0) {
        GTEST_SKIP() << "chromium is not installed";
    }
    const TempDir dir;
    write_sound(dir / "a_recording_with_a_rather_long_name_for_a_narrow_page.wav",
                signals::speech(30, 16000), kWav16);
    write_sound(dir / "b.wav", signals::speech(5, 16000), kWav16);
    write_text(dir / "broken.wav", "nothing");
    ASSERT_EQ(
        run_program("cd " + dir.path() + " && " QUORVANE " --settle 0 --report r --for podcast .")
            .status,
        1);
    for (int width : {1280, 400}) {
        SCOPED_TRACE(width);
        EXPECT_THAT(
            looked_at(dir, "r/a_recording_with_a_rather_long_name_for_a_narrow_page.wav.html",
                      width),
            MatchesRegex("width 0 wide  tall 0 waves 2 curves 2 spans [1-9][0-9]* gain 1 numbers 7 "
                         "places 6 rows [1-9][0-9]* files 0"));
        EXPECT_EQ(looked_at(dir, "r/index.html", width),
                  "width 0 wide  tall 0 waves 0 curves 0 spans 0 gain 0 numbers 0 places 0 rows 0 "
                  "files 3");
    }
}

TEST(ReportInABrowser, TheExcerptsPlayAndTheSwitchWorks) {
    if (run_program("command -v chromium").status != 0) {
        GTEST_SKIP() << "chromium is not installed";
    }
    const TempDir dir;
    write_sound(dir / "a.wav", signals::speech(6, 22050, 2), kWav16);
    ASSERT_EQ(run_program("cd " + dir.path() + " && " QUORVANE " --report r.html a.wav").status, 0);
    EXPECT_EQ("before false after true then true false seconds 6 6 Play",
              listened_to(dir, "r.html"));
    // The sound of a video is decoded for its page.
    ASSERT_EQ(run_program("cd " + dir.path() +
                          " && ffmpeg -v error -f lavfi -i color=s=32x32:d=6 -i a.wav -shortest "
                          "v.mp4 && " QUORVANE " --report v.html v.mp4")
                  .status,
              0);
    EXPECT_EQ("before false after true then true false seconds 6 6 Play",
              listened_to(dir, "v.html"));
    ASSERT_EQ(
        run_program("cd " + dir.path() + " && " QUORVANE " -f --no-listen --report r.html a.wav")
            .status,
        0);
    EXPECT_EQ(std::string::npos, read_text(dir / "r.html").find("<audio"));
}

/** Runs the script in the page's frame `d`; what it pushes to `told` is returned. */
std::string told_by(const TempDir& dir, const std::string& page, const std::string& script) {
    write_text(
        dir / "look.html",
        "<body><iframe id=f src='" + page +
            "'></iframe><p id=r></p><script>f.onload=()=>{const d=f.contentDocument,told=[];" +
            script + ";r.textContent=told.join(' ')+'.'}</script>");
    return result_in(dom_of(dir, "--virtual-time-budget=5000"));
}

TEST(ReportInABrowser, MarksAndTheIndexAnswerClicks) {
    if (run_program("command -v chromium").status != 0) {
        GTEST_SKIP() << "chromium is not installed";
    }
    const TempDir dir;
    Signal clipped = signals::speech(12, 16000);
    for (std::size_t i = 0; i < clipped.samples.size(); ++i) {
        const double gain = i > clipped.samples.size() / 2 ? 30 : 1;
        clipped.samples[i] = std::clamp(gain * clipped.samples[i], -0.9, 0.9);
    }
    write_sound(dir / "a.wav", clipped, kWav16);
    write_sound(dir / "b.wav", signals::speech(5, 16000), kWav16);
    write_text(dir / "c.wav", "nothing");
    run_program("cd " + dir.path() + " && " QUORVANE " --settle 0 --report r .");
    // A mark moves the player to its place in the excerpts, and the head stands there.
    EXPECT_THAT(told_by(dir, "r/a.wav.html",
                        "const m=[...d.querySelectorAll('[data-at]')].filter(x=>!x.disabled);"
                        "const w=d.querySelector('.over').dataset.length;m[0].click();"
                        "told.push('marks',m.length>1,'kinds',new Set(m.map(x=>x.className.split("
                        "' ')[0])).size,'head',Math.abs(parseFloat(d.querySelector('.head').style."
                        "left)*w/100-m[0].dataset.at)<.5);"
                        // All drawings over time begin and end at the same place.
                        "const boxes=s=>new Set([...d.querySelectorAll(s)].map(x=>{const "
                        "b=x.getBoundingClientRect();return Math.round(b.left)+' '+Math.round(b."
                        "right)})).size;told.push('edges',boxes('.plot svg,.times,.over'),'heads',"
                        "d.querySelectorAll('.head').length,boxes('.head'))"),
                "marks true kinds 2 head true edges 1 heads 2 1");
    EXPECT_EQ(
        told_by(dir, "r/index.html",
                "const names=()=>[...d.querySelectorAll('.files tbody tr')].filter(x=>!x."
                "hidden).map(x=>x.cells[0].textContent.slice(2,3)).join('');"
                "const q=d.querySelector('input'),s=d.querySelector('select');"
                "const b=d.querySelector('.files thead button');"
                "told.push(names());b.click();told.push(names());b.click();told.push(names());"
                "q.value='B.WAV';q.oninput();told.push(names());q.value='';"
                "s.value='failed';s.onchange();told.push(names(),d.querySelector('output')."
                "textContent)"),
        "cab abc cba b c 1 of 3 files");
}

TEST(ReportInABrowser, ALongIndexIsShownInPartsAndPrintedWhole) {
    if (run_program("command -v chromium").status != 0) {
        GTEST_SKIP() << "chromium is not installed";
    }
    const TempDir dir;
    constexpr std::size_t kFiles = 450;
    quorvane::ReportWriter report(dir / "r", kFiles, {});
    for (std::size_t i = 0; i < kFiles; ++i) {
        quorvane::FileFacts facts;
        facts.input = std::to_string(i) + ".wav";
        facts.outcome = i % 2 == 0 ? quorvane::Outcome::Failed : quorvane::Outcome::Copied;
        report.add(facts);
    }
    report.finish();
    EXPECT_EQ(told_by(dir, "r/index.html",
                      "const n=()=>[...d.querySelectorAll('.files tbody tr')].filter(x=>"
                      "x.getClientRects().length).length,w=f.contentWindow;"
                      "const first=()=>d.querySelector('.files tbody tr').cells[0].textContent."
                      "replace('.wav','');const s=d.querySelector('select');"
                      "const print=x=>w.dispatchEvent(new Event(x+'print'));"
                      "told.push('rows',n());print('before');told.push('paper',n());"
                      "print('after');told.push('then',n());d.querySelector('.more').click();"
                      "told.push('more',n());const b=d.querySelector('.files thead button');"
                      "b.click();b.click();told.push('last',first());s.value='failed';"
                      "s.onchange();told.push('failed',n(),first());print('before');"
                      "told.push('paper',n())"),
              "rows 200 paper 450 then 200 more 450 last 449 failed 225 448 paper 225");
}

/** An encoder's random number would make every page another one. */
TEST(Report, IsTheSameEachTime) {
    const TempDir dir;
    write_sound(dir / "a.wav", signals::speech(4, 22050, 2));
    const std::string run = "cd " + dir.path() + " && " QUORVANE " -f --report ";
    ASSERT_EQ(run_program(run + "one.html a.wav").status, 0);
    ASSERT_EQ(run_program(run + "two.html a.wav").status, 0);
    const std::string page = read_text(dir / "one.html");
    EXPECT_THAT(page, HasSubstr("<audio"));
    EXPECT_TRUE(page == read_text(dir / "two.html"));
    // A decoder that checks the sums of the pages takes them.
    const std::string text = page.substr(page.find("data:audio/ogg;base64,") + 22);
    write_text(dir / "b64", text.substr(0, text.find('"')));
    EXPECT_EQ(run_program("cd " + dir.path() +
                          " && base64 -d b64 | ffmpeg -v error -err_detect crccheck+explode "
                          "-f ogg -i - -f null - 2>&1")
                  .out,
              "");
}

}  // namespace
