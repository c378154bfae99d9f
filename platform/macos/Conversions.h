// What cannot be handed on as it is: lists, objects of another class, delegates. The only branches and loops of the
// face.
#pragma once

#import <Foundation/Foundation.h>

#include <vector>

#include "platform/CF.h"

namespace NS {

template <typename Handle>
NSArray* array(const std::vector<Handle>& handles) {
  NSMutableArray* const objects = [NSMutableArray array];
  for (const Handle& handle : handles) [objects addObject:(__bridge id)handle.get()];
  return objects;
}

template <typename Number>
NSArray<NSNumber*>* numbers(const std::vector<Number>& values) {
  NSMutableArray<NSNumber*>* const objects = [NSMutableArray array];
  for (const Number value : values) [objects addObject:@(value)];
  return objects;
}

template <typename Handle>
std::vector<Handle> handles(NSArray* objects) {
  std::vector<Handle> handles;
  for (id object in objects) handles.emplace_back(CF::retain((__bridge CFTypeRef)object));
  return handles;
}

// The object when it is one of that class, otherwise nil.
inline id instanceOf(Class kind, id object) { return [object isKindOfClass:kind] ? object : nil; }

// An object that hands on what it is told to `delegate`, which is not retained; nil for none.
template <typename Forwarder, typename Delegate>
Forwarder* forwarder(Delegate* delegate) {
  if (!delegate) return nil;
  Forwarder* const forwarder = [[Forwarder alloc] init];
  forwarder.receiver = delegate;
  return forwarder;
}

}  // namespace NS
