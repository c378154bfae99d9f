// Basic types of the Objective-C runtime.
#pragma once

#include <stdbool.h>

typedef struct objc_class* Class;
typedef struct objc_object* id;
typedef struct objc_selector* SEL;
typedef void (*IMP)(void);
typedef bool BOOL;

#ifdef __cplusplus
extern "C" {
#endif
SEL sel_registerName(const char* str);
#ifdef __cplusplus
}
#endif
