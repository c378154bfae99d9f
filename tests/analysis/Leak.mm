// What the analysis must find: an Objective-C object that is given to Core Foundation, and that nobody releases there.
// Never built into anything.
#import <Foundation/Foundation.h>

CFIndex lengthOf(NSURL* url) {
  CFStringRef text = (__bridge_retained CFStringRef)url.absoluteString;
  return CFStringGetLength(text);
}
