// Code signing on the simulated Mac: what the program uses of it, as Apple's headers declare it.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

enum : OSStatus {
  errSecSuccess = 0,
  errSecIO = -36,
  errSecAllocate = -108,
  errSecInternalComponent = -2070,
};

enum : OSStatus {
  errSecCSInvalidFlags = -67070,
  errSecCSObjectRequired = -67069,
  errSecCSStaticCodeNotFound = -67068,
  errSecCSUnsigned = -67062,
  errSecCSSignatureFailed = -67061,
  errSecCSSignatureNotVerifiable = -67060,
  errSecCSResourcesInvalid = -67055,
  errSecCSBadResource = -67054,
  errSecCSReqInvalid = -67052,
  errSecCSReqFailed = -67050,
  errSecCSInternalError = -67048,
  errSecCSSignatureInvalid = -67045,
  errSecCSInfoPlistFailed = -67030,
  errSecCSNoMainExecutable = -67029,
  errSecCSBadBundleFormat = -67028,
  errSecCSResourceDirectoryFailed = -67023,
  errSecCSResourceNotSupported = -67016,
  errSecCSRegularFile = -67015,
  errSecCSUnsealedAppRoot = -67014,
  errSecCSInvalidSymlink = -67003,
};

typedef struct __SecCode* SecCodeRef;
typedef struct __SecCode const* SecStaticCodeRef;
typedef struct __SecRequirement* SecRequirementRef;

typedef uint32_t SecCSFlags;
enum : SecCSFlags { kSecCSDefaultFlags = 0 };
enum : uint32_t {
  kSecCSCheckAllArchitectures = 1 << 0,
  kSecCSStrictValidate = 1 << 4,
};

OSStatus SecCodeCopySelf(SecCSFlags flags, SecCodeRef* self);
OSStatus SecCodeCopyStaticCode(SecCodeRef code, SecCSFlags flags, SecStaticCodeRef* staticCode);
OSStatus SecCodeCopyDesignatedRequirement(SecStaticCodeRef code, SecCSFlags flags, SecRequirementRef* requirement);
OSStatus SecStaticCodeCreateWithPath(CFURLRef path, SecCSFlags flags, SecStaticCodeRef* staticCode);
OSStatus SecStaticCodeCheckValidity(SecStaticCodeRef staticCode, SecCSFlags flags, SecRequirementRef requirement);

#ifdef __cplusplus
}
#endif
