// What the analysis must find: a Core Foundation object that nobody releases. Never built into anything.
#include <CoreFoundation/CoreFoundation.h>

CFIndex lengthOf(CFStringRef text) {
  CFStringRef copy = CFStringCreateCopy(nullptr, text);
  return CFStringGetLength(copy);
}
