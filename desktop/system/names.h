#pragma once

namespace desktop {

/** The program's name among applications: of its desktop entry, icon and metadata. */
constexpr const char* kApplicationId = "org.quorvane.Quorvane";

}  // namespace desktop
