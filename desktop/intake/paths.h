#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <string>
#include <vector>

class QMimeData;

namespace desktop {

// A path is a std::string of the bytes that the file system has; a QString would lose those that
// are no UTF-8. Only what is shown becomes a QString.

/** The path's last component, for people: bytes that are no UTF-8 become replacement characters. */
QString shown_name(const std::string& path);

/** The folder that holds it, for people, with the home folder as "~". */
QString shown_folder(const std::string& path);

/** The file URL, with every byte kept. */
QUrl to_url(const std::string& path);

/** What a drag carries. */
struct DraggedFiles {
    std::vector<std::string> paths;  // absolute, in their order
    QStringList elsewhere;           // URLs of files on other computers
};

/** Reads the text/uri-list of a drag or of the clipboard. */
DraggedFiles dragged_files(const QMimeData& data);

/** Absolute paths of words of a command line, from the current folder. */
std::vector<std::string> absolute_paths(const std::vector<std::string>& words);

}  // namespace desktop
