#include "platform/AppService.h"

#import <ServiceManagement/ServiceManagement.h>

// Since macOS 13; not in every copy of the framework's headers.
@interface SMAppService (LoginItemsSettings)
+ (void)openSystemSettingsLoginItems;
@end

namespace NS {

static_assert(static_cast<long>(AppServiceStatus::NotRegistered) == SMAppServiceStatusNotRegistered);
static_assert(static_cast<long>(AppServiceStatus::Enabled) == SMAppServiceStatusEnabled);
static_assert(static_cast<long>(AppServiceStatus::RequiresApproval) == SMAppServiceStatusRequiresApproval);
static_assert(static_cast<long>(AppServiceStatus::NotFound) == SMAppServiceStatusNotFound);

static SMAppService* object(const AppService& service) { return (__bridge SMAppService*)service.get(); }

// Hands `object`, which may be nil, on to `error` and answers `succeeded`.
static bool report(bool succeeded, NSError* object, Error& error) {
  error = Error(CF::adopt((__bridge_retained CFTypeRef)object));
  return succeeded;
}

AppService AppService::mainAppService() {
  @autoreleasepool {
    return AppService(CF::adopt((__bridge_retained CFTypeRef)SMAppService.mainAppService));
  }
}

void AppService::openSystemSettingsLoginItems() {
  @autoreleasepool {
    [SMAppService openSystemSettingsLoginItems];
  }
}

AppServiceStatus AppService::status() const {
  @autoreleasepool {
    return static_cast<AppServiceStatus>(object(*this).status);
  }
}

bool AppService::registerAndReturnError(Error& error) const {
  @autoreleasepool {
    NSError* failure = nil;
    const bool succeeded = [object(*this) registerAndReturnError:&failure];
    return report(succeeded, failure, error);
  }
}

bool AppService::unregisterAndReturnError(Error& error) const {
  @autoreleasepool {
    NSError* failure = nil;
    const bool succeeded = [object(*this) unregisterAndReturnError:&failure];
    return report(succeeded, failure, error);
  }
}

}  // namespace NS
