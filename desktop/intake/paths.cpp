#include "desktop/intake/paths.h"

#include <QDir>
#include <QMimeData>
#include <QSysInfo>
#include <filesystem>

namespace desktop {
namespace fs = std::filesystem;

QString shown_name(const std::string& path) {
    return QString::fromStdString(fs::path(path).filename().string());
}

QString shown_folder(const std::string& path) {
    QString folder = QString::fromStdString(fs::path(path).parent_path().string());
    const QString home = QDir::homePath();
    if (folder == home || folder.startsWith(home + '/')) {
        return '~' + folder.mid(home.size());
    }
    return folder;
}

QUrl to_url(const std::string& path) {
    return QUrl::fromEncoded("file://" + QByteArray::fromStdString(path).toPercentEncoding("/"));
}

// Only local files: a page of a browser also drags as a URL.
DraggedFiles dragged_files(const QMimeData& data) {
    constexpr const char* kScheme = "file://";
    DraggedFiles files;
    for (QByteArray line : data.data("text/uri-list").split('\n')) {
        line = line.trimmed();
        if (line.isEmpty() || line.startsWith('#')) {
            continue;
        }
        const QByteArray rest = line.mid(static_cast<qsizetype>(qstrlen(kScheme)));
        const QByteArray host = rest.left(rest.indexOf('/'));
        const bool here =
            host.isEmpty() || host == "localhost" || host == QSysInfo::machineHostName().toUtf8();
        if (line.startsWith(kScheme) && rest.contains('/') && here) {
            files.paths.push_back(
                QByteArray::fromPercentEncoding(rest.mid(rest.indexOf('/'))).toStdString());
        } else {
            files.elsewhere.append(QString::fromUtf8(QByteArray::fromPercentEncoding(line)));
        }
    }
    return files;
}

std::vector<std::string> absolute_paths(const std::vector<std::string>& words) {
    std::vector<std::string> paths;
    for (const std::string& word : words) {
        QMimeData uri;
        uri.setData("text/uri-list", QByteArray::fromStdString(word));
        const std::vector<std::string> from_uri =
            word.rfind("file://", 0) == 0 ? dragged_files(uri).paths : std::vector<std::string>();
        std::error_code error;
        const fs::path path = fs::absolute(from_uri.empty() ? word : from_uri.front(), error);
        paths.push_back(error ? word : path.lexically_normal().string());
    }
    return paths;
}

}  // namespace desktop
