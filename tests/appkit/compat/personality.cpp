// clang gives every Objective-C++ function the exception personality of gcc's Objective-C runtime, which ends
// the program at any C++ handler. This one takes its name and does what C++ needs. It is hidden, so it binds
// only the objects of the test program and not GNUstep's libraries.
#include <unwind.h>

extern "C" {

_Unwind_Reason_Code __gxx_personality_v0(int version, _Unwind_Action actions, _Unwind_Exception_Class type,
                                         _Unwind_Exception* exception, _Unwind_Context* context);

__attribute__((visibility("hidden"))) _Unwind_Reason_Code __gnu_objc_personality_v0(
    int version, _Unwind_Action actions, _Unwind_Exception_Class type, _Unwind_Exception* exception,
    _Unwind_Context* context) {
  return __gxx_personality_v0(version, actions, type, exception, context);
}

}  // extern "C"
