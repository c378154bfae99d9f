// The Objective-C runtime on the simulated Mac: classes of loaded libraries and the methods they implement.
#pragma once

#include <objc/objc.h>

typedef struct objc_method* Method;

#ifdef __cplusplus
extern "C" {
#endif

Class objc_lookUpClass(const char* name);
Class object_getClass(id obj);
BOOL class_respondsToSelector(Class cls, SEL sel);
IMP class_getMethodImplementation(Class cls, SEL name);
Method class_getInstanceMethod(Class cls, SEL name);
const char* method_getTypeEncoding(Method m);

#ifdef __cplusplus
}
#endif
