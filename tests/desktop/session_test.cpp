#include "desktop/session/session.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>

#include "tests/desktop/support.h"

namespace fs = std::filesystem;
using desktop::ExistingChoice;
using desktop::Session;
using desktop::State;
using quorvane::Outcome;

class SessionTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void a_drop_ends_as_the_command_line_does();
    void what_exists_is_asked_about_once_data();
    void what_exists_is_asked_about_once();
    void a_locked_folder_is_asked_about_once();
    void cancelled_and_failed_files_can_be_tried_again();
    void the_end_in_mid_file_leaves_nothing();
};

void SessionTest::a_drop_ends_as_the_command_line_does() {
    const TempDir folder;
    const TempDir reference;
    for (const char* name : {"a.wav", "b.wav"}) {
        fs::copy(recording(folder, name), reference / name);
    }
    write_text(folder / "broken.wav", "no audio");
    QCOMPARE(run_program(std::string(QUORVANE) + " " + reference.path()).status, 0);

    FakeQuestions questions;
    Session session(questions);
    QSignalSpy ended(&session, &Session::ended);
    session.take({folder.path()});
    session.take({folder / "a.wav"});  // once more, while it waits or runs
    QTRY_VERIFY_WITH_TIMEOUT(ended.count() == 1 && at_rest(session), kLongestMs);
    for (const char* name : {"a-leveled.wav", "b-leveled.wav"}) {
        QVERIFY(read_text(folder / name) == read_text(reference / name));
    }
    QCOMPARE(session.files().rowCount(), 3);
    const desktop::Row& broken = session.files().at(2);
    QCOMPARE(broken.facts.outcome, Outcome::Failed);
    QVERIFY(!broken.facts.cause.empty());
    const desktop::Row& leveled = session.files().at(0);
    QVERIFY(leveled.facts.before && leveled.facts.after);
    const auto& counts = session.overall().counts();
    QCOMPARE(counts.leveled, 2);
    QCOMPARE(counts.failed, 1);
    QCOMPARE(session.overall().fraction(), 1.0);  // each file's progress counted once

    // The same again: nothing is done twice.
    session.take({folder / "a.wav"});
    QTRY_VERIFY_WITH_TIMEOUT(at_rest(session), kLongestMs);
    QCOMPARE(session.files().rowCount(), 3);
    QCOMPARE(session.files().at(0).facts.outcome, quorvane::Outcome::UpToDate);
    QVERIFY(session.files().at(0).facts.after);
    QCOMPARE(session.overall().counts().up_to_date, 1);
    QCOMPARE(questions.asked_existing, 0);
}

void SessionTest::what_exists_is_asked_about_once_data() {
    QTest::addColumn<int>("choice");
    QTest::addColumn<bool>("old_stays");
    QTest::addColumn<int>("entries");
    QTest::newRow("replace") << static_cast<int>(ExistingChoice::Replace) << false << 4;
    QTest::newRow("keep both") << static_cast<int>(ExistingChoice::KeepBoth) << true << 6;
    QTest::newRow("skip") << static_cast<int>(ExistingChoice::Skip) << true << 4;
}

void SessionTest::what_exists_is_asked_about_once() {
    QFETCH(int, choice);
    QFETCH(bool, old_stays);
    QFETCH(int, entries);
    const TempDir folder;
    for (const char* name : {"a", "b"}) {
        const std::string output = folder / (std::string(name) + "-leveled.wav");
        recording(folder, std::string(name) + ".wav", 0.5);
        write_text(output, "older");
        fs::last_write_time(output, fs::file_time_type::clock::now() - std::chrono::hours(1));
    }
    FakeQuestions questions;
    questions.choice = static_cast<ExistingChoice>(choice);
    Session session(questions);
    session.take({folder.path()});
    QTRY_VERIFY_WITH_TIMEOUT(session.files().rowCount() == 2 && at_rest(session), kLongestMs);
    QCOMPARE(questions.asked_existing, 1);
    QCOMPARE(read_text(folder / "a-leveled.wav") == "older", old_stays);
    const std::vector<std::string> names = folder.entries();
    const auto hidden = std::count_if(names.begin(), names.end(),
                                      [](const std::string& name) { return name[0] == '.'; });
    QCOMPARE(static_cast<int>(names.size() - hidden), entries);
}

void SessionTest::a_locked_folder_is_asked_about_once() {
    const TempDir locked;
    const TempDir out;
    recording(locked, "a.wav", 0.5);
    recording(locked, "b.wav", 0.5);
    fs::permissions(locked.path(), fs::perms(0555));
    fs::permissions(out.path(), fs::perms(0777));
    constexpr uid_t kNobody = 65534;
    const bool is_root = geteuid() == 0;
    if (is_root) {  // for whom no folder is locked
        QCOMPARE(seteuid(kNobody), 0);
    }
    FakeQuestions questions;
    questions.folder = out.path();
    Session session(questions);
    session.take({locked.path()});
    const bool planned =
        QTest::qWaitFor([&] { return session.files().rowCount() == 2; }, kLongestMs);
    if (is_root) {
        QCOMPARE(seteuid(0), 0);
    }
    QVERIFY(planned);
    QTRY_VERIFY_WITH_TIMEOUT(at_rest(session), kLongestMs);
    QCOMPARE(questions.asked_folder, 1);
    QCOMPARE(session.files().at(1).output, out / "b-leveled.wav");
}

void SessionTest::cancelled_and_failed_files_can_be_tried_again() {
    const TempDir folder;
    const std::string talk = recording(folder, "talk.wav", 1);
    HeldWorkers held;
    FakeQuestions questions;
    Session session(questions);
    QSignalSpy ended(&session, &Session::ended);
    session.take({talk});
    QVERIFY(reached(session, [&] {
        return session.files().rowCount() == 1 && session.files().at(0).state == State::Running;
    }));
    session.cancel_all();
    QTRY_VERIFY_WITH_TIMEOUT(at_rest(session), kLongestMs);
    QCOMPARE(session.files().at(0).facts.outcome, Outcome::Interrupted);
    QCOMPARE(folder.entries(), std::vector<std::string>{"talk.wav"});
    QCOMPARE(ended.count(), 0);  // no notification for a run that the user ended

    held.release();
    session.retry({session.files().id_at(0)});
    QTRY_VERIFY_WITH_TIMEOUT(
        session.files().at(0).facts.outcome == Outcome::Leveled && at_rest(session), kLongestMs);
}

void SessionTest::the_end_in_mid_file_leaves_nothing() {
    const TempDir folder;
    const TempDir temporary;
    const QByteArray before = qgetenv("TMPDIR");
    qputenv("TMPDIR", QByteArray::fromStdString(temporary.path()));
    {
        recording(folder, "talk.wav", 600);
        recording(folder, "wait.wav", 600);
        FakeQuestions questions;
        Session session(questions);
        session.take({folder.path()});
        QVERIFY(reached(session, [&] {
            return session.files().rowCount() == 2 && session.working() &&
                   !temporary.entries().empty();
        }));
        session.shut_down();
    }
    QCOMPARE(temporary.entries(), std::vector<std::string>());
    // A slow test may come after the end of a file: then its result is whole.
    for (const std::string& name : folder.entries()) {
        QVERIFY2(name == ".quorvane.jsonl" ||
                     fs::file_size(folder / name) == fs::file_size(folder / "talk.wav"),
                 name.c_str());
    }
    before.isNull() ? qunsetenv("TMPDIR") : qputenv("TMPDIR", before);
}

std::unique_ptr<QObject> new_session_test() {
    return std::make_unique<SessionTest>();
}

#include "session_test.moc"
