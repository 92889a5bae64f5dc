/* The whole of CoreFoundation from C. Each function answers NULL when all is well, else the condition that failed. */
#include "tests/corefoundation/string_in_c_test.h"

#include <CoreFoundation/CoreFoundation.h>

#include <stdarg.h>
#include <stdlib.h>
#include <string.h>

#define CHECK(condition)                               \
  do {                                                 \
    if (!(condition)) return __FILE__ ": " #condition; \
  } while (0)

static bool isText(CFStringRef string, const char* expected) {
  char buffer[256];
  return CFStringGetCString(string, buffer, (CFIndex)sizeof buffer, kCFStringEncodingUTF8) &&
         strcmp(buffer, expected) == 0;
}

static CFStringRef formatted(CFStringRef format, ...) {
  va_list arguments;
  va_start(arguments, format);
  CFStringRef string = CFStringCreateWithFormatAndArguments(kCFAllocatorDefault, NULL, format, arguments);
  va_end(arguments);
  return string;
}

const char* stringsFromC(void) {
  CFStringRef constant = CFSTR("gr\xC3\xBCn");
  for (int i = 0; i < 3; ++i) CHECK(CFSTR("the same every time") == CFSTR("the same every time"));
  CHECK(CFStringGetLength(constant) == 4);
  CHECK(CFGetRetainCount(constant) == INTPTR_MAX);
  CFRelease(constant);
  CHECK(isText(constant, "gr\xC3\xBCn"));
  CHECK(CFGetTypeID(constant) == CFStringGetTypeID());

  CFStringRef string = CFStringCreateWithCString(kCFAllocatorDefault, "text", kCFStringEncodingASCII);
  CHECK(CFEqual(string, CFSTR("text")) && CFHash(string) == CFHash(CFSTR("text")));
  CFMutableStringRef changing = CFStringCreateMutableCopy(kCFAllocatorDefault, 0, string);
  CFStringAppend(changing, CFSTR(" more"));
  CFStringAppendFormat(changing, NULL, CFSTR(" %d %@"), 5, CFSTR("x"));
  CHECK(isText(changing, "text more 5 x"));
  CFRange found = CFStringFind(changing, CFSTR("MORE"), kCFCompareCaseInsensitive);
  CHECK(found.location == 5 && found.length == 4);
  CHECK(CFStringCompare(CFSTR("10.2"), CFSTR("9.9"), kCFCompareNumerically) == kCFCompareGreaterThan);
  CFRelease(changing);
  CFRelease(string);

  CFStringRef formattedString = formatted(CFSTR("%2$s %1$.2f"), 1.5, "first");
  CHECK(isText(formattedString, "first 1.50"));
  CFRelease(formattedString);
  return NULL;
}

const char* collectionsFromC(void) {
  const int number = 303;
  CFNumberRef object = CFNumberCreate(kCFAllocatorDefault, kCFNumberIntType, &number);
  int value = 0;
  CHECK(CFNumberGetValue(object, kCFNumberIntType, &value) && value == 303);
  CHECK(CFBooleanGetValue(kCFBooleanTrue) && !CFBooleanGetValue(kCFBooleanFalse));

  const void* values[] = {object, kCFBooleanTrue, CFSTR("text")};
  CFArrayRef array = CFArrayCreate(kCFAllocatorDefault, values, 3, &kCFTypeArrayCallBacks);
  CHECK(CFArrayGetCount(array) == 3 && CFArrayGetValueAtIndex(array, 1) == kCFBooleanTrue);

  CFMutableDictionaryRef dictionary = CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                                                &kCFTypeDictionaryValueCallBacks);
  CFDictionarySetValue(dictionary, CFSTR("array"), array);
  CHECK(CFDictionaryGetValue(dictionary, CFSTR("array")) == array);
  CHECK(CFDictionaryGetCount(dictionary) == 1);

  const UInt8 bytes[] = {1, 2, 3};
  CFDataRef data = CFDataCreate(kCFAllocatorDefault, bytes, 3);
  CHECK(CFDataGetLength(data) == 3 && CFDataGetBytePtr(data)[2] == 3);
  CFRelease(data);
  CFRelease(dictionary);
  CFRelease(array);
  CFRelease(object);
  return NULL;
}

const char* datesFromC(void) {
  CFDateRef date = CFDateCreate(kCFAllocatorDefault, 86400.5);
  CHECK(CFDateGetAbsoluteTime(date) > 86400.4 && CFDateGetAbsoluteTime(date) < 86400.6);
  CFRelease(date);
  CFTimeZoneRef gmt = CFTimeZoneCreateWithTimeIntervalFromGMT(kCFAllocatorDefault, 0);
  CFGregorianDate parts = CFAbsoluteTimeGetGregorianDate(86400, gmt);
  CHECK(parts.year == 2001 && parts.month == 1 && parts.day == 2 && parts.hour == 0);
  CFRelease(gmt);
  CFUUIDRef uuid = CFUUIDCreateFromString(kCFAllocatorDefault, CFSTR("68753A44-4D6F-1226-9C60-0050E4C00067"));
  CFStringRef text = CFUUIDCreateString(kCFAllocatorDefault, uuid);
  CHECK(isText(text, "68753A44-4D6F-1226-9C60-0050E4C00067"));
  CFRelease(text);
  CFRelease(uuid);
  CFErrorRef error = CFErrorCreate(kCFAllocatorDefault, kCFErrorDomainPOSIX, 2, NULL);
  CHECK(CFErrorGetCode(error) == 2);
  CFRelease(error);
  return NULL;
}

const char* locationsFromC(void) {
  CFURLRef url = CFURLCreateWithFileSystemPath(kCFAllocatorDefault, CFSTR("/tmp/a b"), kCFURLPOSIXPathStyle, false);
  CHECK(url != NULL);
  UInt8 path[64];
  CHECK(CFURLGetFileSystemRepresentation(url, true, path, (CFIndex)sizeof path));
  CHECK(strcmp((const char*)path, "/tmp/a b") == 0);
  CFRelease(url);
  CFStringRef escaped =
      CFURLCreateStringByAddingPercentEscapes(kCFAllocatorDefault, CFSTR("a b"), NULL, NULL, kCFStringEncodingUTF8);
  CHECK(isText(escaped, "a%20b"));
  CFRelease(escaped);
  CFURLRef nowhere =
      CFURLCreateWithFileSystemPath(kCFAllocatorDefault, CFSTR("/nowhere/x.bundle"), kCFURLPOSIXPathStyle, true);
  CHECK(CFBundleCreate(kCFAllocatorDefault, nowhere) == NULL);
  CFRelease(nowhere);
  return NULL;
}

const char* propertyListsFromC(void) {
  const void* keys[] = {CFSTR("key")};
  const void* values[] = {CFSTR("value")};
  CFDictionaryRef list = CFDictionaryCreate(kCFAllocatorDefault, keys, values, 1, &kCFTypeDictionaryKeyCallBacks,
                                            &kCFTypeDictionaryValueCallBacks);
  CFDataRef data = CFPropertyListCreateData(kCFAllocatorDefault, list, kCFPropertyListXMLFormat_v1_0, 0, NULL);
  CHECK(data != NULL);
  CFPropertyListRef back =
      CFPropertyListCreateWithData(kCFAllocatorDefault, data, kCFPropertyListImmutable, NULL, NULL);
  CHECK(back != NULL && CFEqual(back, list));
  CFRelease(back);

  CFReadStreamRef stream = CFReadStreamCreateWithBytesNoCopy(kCFAllocatorDefault, CFDataGetBytePtr(data),
                                                             CFDataGetLength(data), kCFAllocatorNull);
  UInt8 first = 0;
  CHECK(CFReadStreamOpen(stream) && CFReadStreamRead(stream, &first, 1) == 1 && first == '<');
  CFReadStreamClose(stream);
  CFRelease(stream);
  CFRelease(data);
  CFRelease(list);
  return NULL;
}
