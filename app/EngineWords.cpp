#include "app/EngineWords.h"

int EngineWords::Listener::overflow(int character) {
    if (traits_type::eq_int_type(character, traits_type::eof())) {
        return traits_type::not_eof(character);
    }
    if (character != '\n') {
        words_.line_ += traits_type::to_char_type(character);
    } else if (!words_.line_.empty()) {
        words_.previous_.swap(words_.line_);
        words_.line_.clear();
    }
    return original_->sputc(traits_type::to_char_type(character));
}
