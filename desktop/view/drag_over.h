#pragma once

namespace desktop {

/** Whether a drag of files hangs over the window. */
enum class DragOver { kNo, kYes };

}  // namespace desktop
