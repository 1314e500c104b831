#include "desktop/system/reports.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>
#include <system_error>

#include "leveling/report/report.h"

namespace desktop {

// Into the user's cache folder: the page is to be looked at, not to be kept.
std::string write_cached_report(const std::vector<quorvane::FileFacts>& files) {
    // A browser may still have a recent one open; older ones are deleted.
    constexpr int kDaysKept = 30;
    const QDir reports(QStandardPaths::writableLocation(QStandardPaths::CacheLocation) +
                       QStringLiteral("/reports"));
    const QDateTime now = QDateTime::currentDateTime();
    for (const QFileInfo& old : reports.entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        if (old.lastModified().daysTo(now) > kDaysKept) {
            QDir(old.filePath()).removeRecursively();
        }
    }
    // A folder for each, named by the time, so that two reports never share pages.
    const QString folder =
        reports.filePath(now.toString(QStringLiteral("yyyy-MM-dd hh-mm-ss-zzz")));
    if (!QDir().mkpath(folder)) {
        throw std::system_error(errno, std::generic_category(), folder.toStdString());
    }
    return quorvane::write_report(folder.toStdString(), files);
}

}  // namespace desktop
