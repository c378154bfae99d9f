// GNUstep Base answers questions about Foundation: one a line on standard input, its parts separated by tabs, an answer a
// line on standard output. FoundationJudge.cpp asks the simulated Mac the same; the forms of questions and answers are
// told there.
#import <Foundation/Foundation.h>
#include <stdlib.h>

// The text with %41 for what a line cannot hold.
static NSString *unescaped(NSString *text) {
  NSMutableData *bytes = [NSMutableData data];
  const char *at = [text UTF8String];
  while (*at) {
    char byte = *at++;
    if (byte == '%') {
      const char digits[] = {at[0], at[1], 0};
      byte = (char)strtol(digits, NULL, 16);
      at += 2;
    }
    [bytes appendBytes:&byte length:1];
  }
  return [[[NSString alloc] initWithData:bytes encoding:NSUTF8StringEncoding] autorelease];
}

static NSString *escaped(NSString *text) {
  NSMutableString *result = [NSMutableString string];
  for (const char *at = [text UTF8String]; *at; ++at) {
    const unsigned char byte = (unsigned char)*at;
    if (byte > ' ' && byte < 0x7F && byte != '%' && byte != '"') [result appendFormat:@"%c", byte];
    else [result appendFormat:@"%%%02X", byte];
  }
  return result;
}

static BOOL isBoolean(id value) { return value == (id)[NSNumber numberWithBool:YES] || value == (id)[NSNumber numberWithBool:NO]; }

static BOOL isFloat(NSNumber *value) { return strchr("fd", [value objCType][0]) != NULL; }

static NSString *described(id value) {
  if (!value) return @"none";
  if ([value isKindOfClass:[NSString class]]) return [NSString stringWithFormat:@"\"%@\"", escaped(value)];
  if (isBoolean(value)) return [value boolValue] ? @"yes" : @"no";
  if ([value isKindOfClass:[NSNumber class]]) {
    if (isFloat(value)) return [NSString stringWithFormat:@"%a", [value doubleValue]];
    const char type = [value objCType][0];
    if (strchr("QLI", type)) return [NSString stringWithFormat:@"%llu", [value unsignedLongLongValue]];
    return [NSString stringWithFormat:@"%lld", [value longLongValue]];
  }
  NSMutableArray *parts = [NSMutableArray array];
  if ([value isKindOfClass:[NSArray class]]) {
    for (id each in value) [parts addObject:described(each)];
    return [NSString stringWithFormat:@"[%@]", [parts componentsJoinedByString:@","]];
  }
  if ([value isKindOfClass:[NSDictionary class]]) {
    for (NSString *key in [[value allKeys] sortedArrayUsingSelector:@selector(compare:)]) {
      [parts addObject:[NSString stringWithFormat:@"%@=%@", described(key), described([value objectForKey:key])]];
    }
    return [NSString stringWithFormat:@"{%@}", [parts componentsJoinedByString:@","]];
  }
  return @"other";
}

static id propertyList(NSString *text) {
  return [NSPropertyListSerialization propertyListWithData:[text dataUsingEncoding:NSUTF8StringEncoding]
                                                   options:NSPropertyListImmutable
                                                    format:NULL
                                                     error:NULL];
}

static id made(NSString *kind, NSString *text) {
  if ([kind isEqual:@"string"]) return text;
  if ([kind isEqual:@"boolean"]) return [NSNumber numberWithBool:[text isEqual:@"yes"]];
  if ([kind isEqual:@"int32"]) return [NSNumber numberWithInt:atoi([text UTF8String])];
  if ([kind isEqual:@"int64"]) return [NSNumber numberWithLongLong:atoll([text UTF8String])];
  if ([kind isEqual:@"real"]) return [NSNumber numberWithDouble:strtod([text UTF8String], NULL)];
  return propertyList(text);
}

static NSString *preference(NSString *kind, NSString *text) {
  NSUserDefaults *defaults = [NSUserDefaults standardUserDefaults];
  [defaults removeObjectForKey:@"key"];
  if ([kind isEqual:@"setInteger"]) [defaults setInteger:atoll([text UTF8String]) forKey:@"key"];
  else if ([kind isEqual:@"setBool"]) [defaults setBool:[text isEqual:@"yes"] forKey:@"key"];
  else if (![kind isEqual:@"absent"]) [defaults setObject:made(kind, text) forKey:@"key"];
  return [NSString stringWithFormat:@"bool=%d object=%@", [defaults boolForKey:@"key"], described([defaults objectForKey:@"key"])];
}

// A value that is another number than the one that it was made of is marked.
static NSString *number(NSNumber *value) {
  const int small = [value intValue];
  const long long large = [value longLongValue];
  const double real = [value doubleValue];
  return [NSString stringWithFormat:@"float=%d int32=%@ int64=%@ real=%@", isFloat(value),
      [[NSNumber numberWithInt:small] isEqual:value] ? [NSString stringWithFormat:@"%d", small] : @"lossy",
      [[NSNumber numberWithLongLong:large] isEqual:value] ? [NSString stringWithFormat:@"%lld", large] : @"lossy",
      real != real || [[NSNumber numberWithDouble:real] isEqual:value] ? [NSString stringWithFormat:@"%a", real] : @"lossy"];
}

static NSString *url(NSURL *value) {
  if (!value) return @"none";
  return [NSString stringWithFormat:@"%@ scheme=%@", escaped([value absoluteString]), escaped([value scheme] ? [value scheme] : @"")];
}

static NSString *file(BOOL isFolder, NSString *path) {
  NSURL *value = [NSURL fileURLWithPath:path isDirectory:isFolder];
  return [NSString stringWithFormat:@"%@ path=%@", escaped([value absoluteString]), escaped([value path])];
}

static NSString *answer(NSArray *question) {
  NSString *subject = [question objectAtIndex:0];
  NSString *first = [question objectAtIndex:1];
  NSString *second = [question count] > 2 ? unescaped([question objectAtIndex:2]) : @"";
  if ([subject isEqual:@"preference"]) return preference(first, second);
  if ([subject isEqual:@"number"]) return number(made(first, second));
  if ([subject isEqual:@"equal"]) {
    return [made(first, second) isEqual:made([question objectAtIndex:3], unescaped([question objectAtIndex:4]))] ? @"yes" : @"no";
  }
  if ([subject isEqual:@"url"]) return url([NSURL URLWithString:unescaped(first)]);
  if ([subject isEqual:@"file"]) return file(NO, unescaped(first));
  if ([subject isEqual:@"folder"]) return file(YES, unescaped(first));
  if ([subject isEqual:@"plist"]) return described(propertyList(unescaped(first)));
  return @"unknown";
}

int main(void) {
  NSAutoreleasePool *pool = [NSAutoreleasePool new];
  NSData *input = [[NSFileHandle fileHandleWithStandardInput] readDataToEndOfFile];
  NSString *text = [[[NSString alloc] initWithData:input encoding:NSUTF8StringEncoding] autorelease];
  for (NSString *line in [text componentsSeparatedByString:@"\n"]) {
    if ([line length] == 0) continue;
    NSString *said = nil;
    @try {
      said = answer([line componentsSeparatedByString:@"\t"]);
    } @catch (NSException *exception) {
      said = [NSString stringWithFormat:@"exception %@", escaped([exception name])];
    }
    puts([said UTF8String]);
  }
  [pool release];
  return 0;
}
