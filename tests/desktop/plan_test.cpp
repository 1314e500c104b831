#include <QMimeData>
#include <QMimeDatabase>
#include <algorithm>
#include <filesystem>
#include <memory>

#include "desktop/intake/drop_plan.h"
#include "desktop/intake/paths.h"
#include "desktop/model/overall.h"
#include "leveling/archive/output_claim.h"
#include "leveling/archive/record.h"
#include "leveling/inputs/file_kind.h"
#include "tests/desktop/support.h"

namespace fs = std::filesystem;
using desktop::Existing;

class PlanTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void drags_keep_every_byte_of_a_path();
    void outputs_are_looked_at_before_anything_is_done();
    void one_folder_for_all_keeps_equal_names_apart();
    void time_left_follows_the_pace();
    void the_desktop_entry_names_what_is_opened();
};

void PlanTest::drags_keep_every_byte_of_a_path() {
    const std::string odd = "/a b/\xe9t\xe9 #1%.wav";  // Latin-1, as old archives have it
    QMimeData data;
    data.setData("text/uri-list", "# from a test\r\n" + desktop::to_url(odd).toEncoded() +
                                      "\r\nfile://localhost/x.wav\r\nsftp://host/y.wav\r\n"
                                      "file://elsewhere.example/z.wav\r\n");
    const desktop::DraggedFiles files = desktop::dragged_files(data);
    QCOMPARE(files.paths, (std::vector<std::string>{odd, "/x.wav"}));
    QCOMPARE(files.elsewhere.size(), 2);
    QCOMPARE(desktop::shown_name("/tmp/שלום 日本.wav"), QString::fromUtf8("שלום 日本.wav"));
}

/** Makes the output as a run does that leveled the input. */
static void leveled_before(const TempDir& folder, const std::string& input) {
    const std::string output = input.substr(0, input.size() - 4) + "-leveled.wav";
    write_text(folder / output, "leveled");
    quorvane::DoneRecord record;
    record.output = output;
    record.output_state = quorvane::state_of(folder / output);
    record.input_state = quorvane::state_of(folder / input);
    record.options = quorvane::options_key({}, true);
    record.facts.outcome = quorvane::Outcome::Leveled;
    quorvane::OutputClaim claim;
    QVERIFY(claim.take(folder / output, "", quorvane::WhenTaken::Leave));
    claim.record(quorvane::to_line(record));
}

void PlanTest::outputs_are_looked_at_before_anything_is_done() {
    const TempDir folder;
    for (const char* name : {"new.wav", "done.wav", "old.wav", "foreign.wav"}) {
        recording(folder, name, 0.2);
    }
    leveled_before(folder, "done.wav");
    leveled_before(folder, "old.wav");
    recording(folder, "old.wav", 0.3);
    write_text(folder / "foreign-leveled.wav", "newer than its input, and not its output");
    write_text(folder / "notes.txt", "no audio");
    write_text(folder / "broken.wav", "no audio either");
    fs::copy(folder / "new.wav", folder / "speech.bin");
    write_text(folder / "memo", std::string("\0\0\0\x1c"
                                            "ftypM4A ",
                                            12));
    write_text(folder / "film.mp4", "");
    write_text(folder / "sub.amr", "");

    const desktop::DropPlan plan = desktop::plan_drop(
        {folder.path(), folder / "notes.txt", folder / "speech.bin", folder / "missing.wav"}, "");
    std::map<std::string, desktop::DropFile> files;
    for (const desktop::DropFile& file : plan.files) {
        files[fs::path(file.input).filename().string()] = file;
    }
    QCOMPARE(plan.not_audio, (std::vector<std::string>{folder / "notes.txt"}));
    QCOMPARE(files.size(), std::size_t(10));
    QCOMPARE(files["new.wav"].existing, Existing::Nothing);
    QCOMPARE(files["done.wav"].existing, Existing::UpToDate);
    QCOMPARE(files["old.wav"].existing, Existing::Other);
    QCOMPARE(files["foreign.wav"].existing, Existing::Other);
    QCOMPARE(files["new.wav"].output, folder / "new-leveled.wav");
    QCOMPARE(files["speech.bin"].output, folder / "speech-leveled.bin");
    QCOMPARE(files["memo"].failure + files["memo"].passed, std::string());
    QVERIFY(!files["film.mp4"].output.empty());
    QCOMPARE(files["sub.amr"].passed, std::string("not supported"));
    QCOMPARE(files["missing.wav"].failure, std::string("does not exist"));
    QVERIFY(plan.locked_folders.empty());
}

void PlanTest::one_folder_for_all_keeps_equal_names_apart() {
    const TempDir one;
    const TempDir two;
    const TempDir out;
    recording(one, "talk.wav", 0.2);
    recording(two, "talk.wav", 0.2);
    const desktop::DropPlan plan =
        desktop::plan_drop({one / "talk.wav", two / "talk.wav"}, out.path());
    QCOMPARE(plan.files.size(), std::size_t(2));
    for (const desktop::DropFile& file : plan.files) {
        QCOMPARE(file.failure, std::string());
        QCOMPARE(fs::path(file.output).parent_path().string(), out.path());
    }
    QVERIFY(plan.files[0].output != plan.files[1].output);

    write_text(out / "a-leveled 2.wav", "");
    QCOMPARE(desktop::free_name(out / "a-leveled.wav", {out / "a-leveled 3.wav"}),
             out / "a-leveled 4.wav");
}

void PlanTest::time_left_follows_the_pace() {
    desktop::Overall overall;
    overall.add(100);
    overall.add(300);
    overall.finished(100, 0, quorvane::Outcome::Leveled);
    overall.progressed(300, 0, 0.5);
    QCOMPARE(overall.fraction(), 0.625);       // (100 + 150) / 400
    QCOMPARE(*overall.seconds_left(10), 6.0);  // 10 s for 0.625 leaves 10 * 0.375 / 0.625
    QVERIFY(!overall.seconds_left(1));
}

// Against the types that desktops know of, so that a new container is not forgotten in the entry.
void PlanTest::the_desktop_entry_names_what_is_opened() {
    const QString types = QString::fromStdString(read_text(DESKTOP_ENTRY)).section("MimeType=", 1);
    const QStringList offered = types.section('\n', 0, 0).split(';');
    QVERIFY(offered.contains("audio/x-wav"));
    for (const std::string& extension : quorvane::wanted_extensions()) {
        const QString name = "talk." + QString::fromStdString(extension);
        const QList<QMimeType> known = QMimeDatabase().mimeTypesForFileName(name);
        const bool named = std::any_of(known.begin(), known.end(), [&](const QMimeType& type) {
            return offered.contains(type.name());
        });
        QVERIFY2(known.isEmpty() || named, qPrintable(name));
    }
}

std::unique_ptr<QObject> new_plan_test() {
    return std::make_unique<PlanTest>();
}

#include "plan_test.moc"
