#pragma once

#include <QMessageBox>
#include <functional>
#include <string>
#include <vector>

#include "desktop/intake/intake.h"

class QFileDialog;

namespace desktop {

/**
 * The boxes that the window opens. None of them blocks: each hands its answer on when it closes,
 * while drops, progress and the other files go on. In none of them do Return or Escape destroy
 * anything.
 */
class Dialogs : public Questions {
  public:
    using TakePaths = std::function<void(const std::vector<std::string>&)>;

    /** The window that they stand over. It outlives them. */
    explicit Dialogs(QWidget& window) : window_(window) {}

    void ask_existing(int count,
                      const QString& example,
                      std::function<void(ExistingChoice)> answer) override;

    /** Says first what is the matter, as a file dialog has no room for it, then asks where to. */
    void ask_folder(const QString& locked, std::function<void(std::string)> answer) override;

    /** Whether the work may be stopped to quit; a no calls nothing. */
    void ask_to_stop(const std::function<void()>& stop);

    /** With the paths that were chosen, if any. */
    void choose_files(const TakePaths& take);
    void choose_folder(const TakePaths& take);

    /** Version and license. */
    void about();

  private:
    // Each deletes itself when it is closed.
    QMessageBox* new_question(const QString& text, const QString& explanation);
    QFileDialog* new_file_dialog(const QString& title);
    void choose_output_folder(const std::function<void(std::string)>& answer);

    QWidget& window_;
};

}  // namespace desktop
