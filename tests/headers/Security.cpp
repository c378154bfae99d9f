#include <Security/Security.h>

#include "tests/headers/Agreement.h"

// ---- Statuses ----

VALUE(errSecSuccess, 0);
VALUE(errSecIO, -36);
VALUE(errSecAllocate, -108);
VALUE(errSecInternalComponent, -2070);
VALUE(errSecCSInvalidFlags, -67070);
VALUE(errSecCSObjectRequired, -67069);
VALUE(errSecCSStaticCodeNotFound, -67068);
VALUE(errSecCSUnsigned, -67062);
VALUE(errSecCSSignatureFailed, -67061);
VALUE(errSecCSSignatureNotVerifiable, -67060);
VALUE(errSecCSResourcesInvalid, -67055);
VALUE(errSecCSBadResource, -67054);
VALUE(errSecCSReqInvalid, -67052);
VALUE(errSecCSReqFailed, -67050);
VALUE(errSecCSInternalError, -67048);
VALUE(errSecCSSignatureInvalid, -67045);
VALUE(errSecCSInfoPlistFailed, -67030);
VALUE(errSecCSNoMainExecutable, -67029);
VALUE(errSecCSBadBundleFormat, -67028);
VALUE(errSecCSResourceDirectoryFailed, -67023);
VALUE(errSecCSResourceNotSupported, -67016);
VALUE(errSecCSRegularFile, -67015);
VALUE(errSecCSUnsealedAppRoot, -67014);
VALUE(errSecCSInvalidSymlink, -67003);

// ---- Code ----

TYPE(SecCodeRef, struct __SecCode*);
TYPE(SecStaticCodeRef, struct __SecCode const*);
TYPE(SecRequirementRef, struct __SecRequirement*);
TYPE(SecCSFlags, std::uint32_t);
VALUE(kSecCSDefaultFlags, 0);
VALUE(kSecCSCheckAllArchitectures, 1);
VALUE(kSecCSStrictValidate, 16);
FUNCTION(SecCodeCopySelf, OSStatus(SecCSFlags, SecCodeRef*));
FUNCTION(SecCodeCopyStaticCode, OSStatus(SecCodeRef, SecCSFlags, SecStaticCodeRef*));
FUNCTION(SecCodeCopyDesignatedRequirement, OSStatus(SecStaticCodeRef, SecCSFlags, SecRequirementRef*));
FUNCTION(SecStaticCodeCreateWithPath, OSStatus(CFURLRef, SecCSFlags, SecStaticCodeRef*));
FUNCTION(SecStaticCodeCheckValidity, OSStatus(SecStaticCodeRef, SecCSFlags, SecRequirementRef));
