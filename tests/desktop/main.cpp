// Runs the suites named on the command line; as the window does, it is its own worker.
#include <unistd.h>

#include <QApplication>
#include <QTest>
#include <cstring>
#include <memory>

#include "leveling/worker/job.h"
#include "leveling/worker/worker.h"
#include "tests/desktop/support.h"

std::unique_ptr<QObject> new_plan_test();
std::unique_ptr<QObject> new_session_test();
std::unique_ptr<QObject> new_window_test();

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], quorvane::kWorkerWord) == 0) {
        HeldWorkers::wait();
        (void)!nice(10);  // it yields to the test that stops it in mid-file
        return quorvane::worker_main();
    }
    QApplication application(argc, argv);
    QStringList words = QApplication::arguments();
    const QString suite = words.size() > 1 ? words.takeAt(1) : QString();
    for (const auto& make : {new_plan_test, new_session_test, new_window_test}) {
        const std::unique_ptr<QObject> test = make();
        if (suite == test->metaObject()->className()) {
            return QTest::qExec(test.get(), words);
        }
    }
    return 2;
}
