#include "Common/reduce_loud/ReduceLoudOperation.h"

#include "Common/reporting/log.h"

namespace reduce_loud {

void PassageRule::warn(const char* text) {
    log_msg(kSource, 14, text);  // the message's mark, see log.h
}

void ReduceLoud(const ReduceLoudArgs& args) {
    ReduceLoudOperation operation(args);
    operation.Execute();
}

}  // namespace reduce_loud
