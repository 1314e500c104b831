// Every function of an Objective-C++ file names the Objective-C personality routine, whose stock
// version never lets a C++ handler catch. This one hands C++ exceptions to C++.

#include <dlfcn.h>
#include <unwind.h>

namespace {

using Personality = _Unwind_Reason_Code (*)(
    int, _Unwind_Action, _Unwind_Exception_Class, _Unwind_Exception*, _Unwind_Context*);

constexpr _Unwind_Exception_Class kObjectiveC = 0x474e55434f424a43;  // "GNUCOBJC"

}  // namespace

extern "C" _Unwind_Reason_Code __gxx_personality_v0(
    int, _Unwind_Action, _Unwind_Exception_Class, _Unwind_Exception*, _Unwind_Context*);

// Hidden, so that GNUstep's own frames keep the stock one.
extern "C" __attribute__((visibility("hidden"))) _Unwind_Reason_Code __gnu_objc_personality_v0(
    int version,
    _Unwind_Action actions,
    _Unwind_Exception_Class exceptionClass,
    _Unwind_Exception* exception,
    _Unwind_Context* context) {
    static const auto stock =
        reinterpret_cast<Personality>(dlsym(RTLD_NEXT, "__gnu_objc_personality_v0"));
    const auto personality = exceptionClass == kObjectiveC ? stock : __gxx_personality_v0;
    return personality(version, actions, exceptionClass, exception, context);
}
