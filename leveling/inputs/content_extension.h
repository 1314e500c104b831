#pragma once

#include <string>

namespace quorvane {

/**
 * The extension, lower case and without the dot, that a recording with this content has, by its
 * first bytes; "" for a content that is not known. For recordings without a name.
 */
std::string extension_of_content(const std::string& path);

}  // namespace quorvane
