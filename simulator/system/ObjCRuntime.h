// Classes of the simulated Objective-C runtime, as loadable libraries define them.
#pragma once

#include <objc/objc.h>

#include "simulator/kernel/Object.h"

struct objc_method {
  const char* selector;
  IMP implementation;
  const char* types;  // of the result and the parameters, as the compiler writes them
};

// A class: its methods by selector, ended by one without a name. It is exported by its library under the name that
// the compiler gives to class symbols, "OBJC_CLASS_$_" and the class's own.
struct objc_class {
  using Method = objc_method;
  const char* name;
  const Method* methods;
  objc_class* isa;  // the metaclass, which has the class methods; null for a metaclass
};

// An instance.
struct objc_object : simulator::Object {
  explicit objc_object(Class isa) : type(isa) {}
  std::string_view kind() const override { return type->name; }
  const Class type;
};
