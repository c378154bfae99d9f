#include "simulator/system/ObjCRuntime.h"

#include <dlfcn.h>
#include <objc/runtime.h>

#include <mutex>
#include <set>
#include <string>

#include "simulator/kernel/Call.h"
#include "simulator/system/SystemRoot.h"

extern "C" {

// The runtime looks into loaded libraries on its own: that is no call of the program's.
void* hostSymbol(void* handle, const char* symbol) __asm__("dlsym");

}  // extern "C"

namespace {

// Null when the class has no such method, or it was taken away: by its selector, or by its symbol, as in
// "+[OSDManager sharedManager]".
const objc_method* methodOf(const objc_class& type, SEL name) {
  const std::string selector = reinterpret_cast<const char*>(name);
  const bool isMetaclass = type.isa == nullptr;
  const std::string symbol = std::string(isMetaclass ? "+[" : "-[") + type.name + " " + selector + "]";
  const auto& root = simulator::Call::unguarded().part<simulator::SystemRoot>();
  if (root.isMissing(selector) || root.isMissing(symbol)) return nullptr;
  for (const objc_class::Method* method = type.methods; method->selector; ++method) {
    if (selector == method->selector) return method;
  }
  return nullptr;
}

// What a message without a method comes to. The receiver raises an exception, and nothing in the program catches one.
[[noreturn]] id forward(id receiver, SEL name) {
  const std::string type = object_getClass(receiver)->name;
  simulator::fatal(type + ": unrecognized selector " + reinterpret_cast<const char*>(name));
}

}  // namespace

extern "C" {

// Selectors are unique by name, so they compare as pointers.
SEL sel_registerName(const char* str) {
  static std::mutex mutex;
  static auto* const names = new std::set<std::string, std::less<>>;
  const std::lock_guard lock(mutex);
  return reinterpret_cast<SEL>(const_cast<char*>(names->insert(str).first->c_str()));
}

Class objc_lookUpClass(const char* name) {
  const simulator::Call call("objc_lookUpClass");
  const std::string symbol = std::string("OBJC_CLASS_$_") + name;
  const auto& root = call.part<simulator::SystemRoot>();
  if (call.fault() || root.isMissing(name) || root.isMissing(symbol)) return nullptr;
  for (void* const library : root.loaded()) {
    if (void* const found = hostSymbol(library, symbol.c_str())) return static_cast<Class>(found);
  }
  return nullptr;
}

Class object_getClass(id obj) {
  // A class is an object too: it is told from an instance by not being in the machine's care.
  if (simulator::isLive(obj)) return obj->type;
  return obj ? reinterpret_cast<Class>(obj)->isa : nullptr;
}

BOOL class_respondsToSelector(Class cls, SEL sel) { return cls && methodOf(*cls, sel); }

IMP class_getMethodImplementation(Class cls, SEL name) {
  if (!cls) return nullptr;
  const objc_method* const method = methodOf(*cls, name);
  return method ? method->implementation : reinterpret_cast<IMP>(forward);
}

Method class_getInstanceMethod(Class cls, SEL name) { return cls ? const_cast<Method>(methodOf(*cls, name)) : nullptr; }

const char* method_getTypeEncoding(Method m) { return m ? m->types : nullptr; }

}  // extern "C"
