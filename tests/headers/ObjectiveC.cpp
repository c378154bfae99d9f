#include <objc/objc.h>
#include <objc/runtime.h>

#include "tests/headers/Agreement.h"

TYPE(Class, struct objc_class*);
TYPE(id, struct objc_object*);
TYPE(SEL, struct objc_selector*);
TYPE(IMP, void (*)());
TYPE(BOOL, bool);
FUNCTION(sel_registerName, SEL(const char*));
FUNCTION(objc_lookUpClass, Class(const char*));
FUNCTION(object_getClass, Class(id));
FUNCTION(class_respondsToSelector, BOOL(Class, SEL));
FUNCTION(class_getMethodImplementation, IMP(Class, SEL));
TYPE(Method, struct objc_method*);
FUNCTION(class_getInstanceMethod, Method(Class, SEL));
FUNCTION(method_getTypeEncoding, const char*(Method));
