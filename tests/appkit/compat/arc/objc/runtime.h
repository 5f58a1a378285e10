// The types of gcc's header of this name without its inline functions, which look into objects in a way that
// automatic reference counting forbids. For compiling without running only.
#pragma once

#include <objc/objc.h>

typedef struct objc_method* Method;
typedef struct objc_ivar* Ivar;
