#include "Common/level/callbacks.h"

namespace level_engine {

namespace {

std::function<int()> opener_for(LevelOpenFinal open, void* context) {
    if (open == nullptr) {
        return nullptr;
    }
    return [open, context] { return open(context); };
}

}  // namespace

reporting::MessageSink sink_for(LevelMessage messages, void* context) {
    if (messages == nullptr) {
        return nullptr;
    }
    return [messages, context](const reporting::Words& words) {
        const LevelWords kind = words.is_cause                              ? kLevelWordsCause
                                : words.stream == reporting::Stream::kError ? kLevelWordsError
                                                                            : kLevelWordsOutput;
        messages(context, kind, words.text.c_str());
    };
}

void set_final_file(RunSettings& settings, LevelOpenFinal open, void* context, const char* name) {
    settings.open_final = opener_for(open, context);
    settings.final_name = name == nullptr ? RunSettings().final_name : name;
}

std::function<int(const std::string&, const std::string&)> mover_for(LevelCopy move,
                                                                     void* context) {
    if (move == nullptr) {
        return nullptr;
    }
    return [move, context](const std::string& from, const std::string& to) {
        return move(context, from.c_str(), to.c_str());
    };
}

}  // namespace level_engine
