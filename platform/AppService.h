// SMAppService: the application as a login item. Main thread only.
#pragma once

#include "platform/Error.h"
#include "platform/Object.h"

namespace NS {

// SMAppServiceStatus.
enum class AppServiceStatus : long { NotRegistered = 0, Enabled = 1, RequiresApproval = 2, NotFound = 3 };

class AppService : public Object {
 public:
  // The service that opens the running application at login.
  static AppService mainAppService();

  // Brings the System Settings to the front, where the user approves login items.
  static void openSystemSettingsLoginItems();

  [[nodiscard]] AppServiceStatus status() const;
  // Both answer whether they succeeded; when not, `error` tells why.
  [[nodiscard]] bool registerAndReturnError(Error& error) const;
  [[nodiscard]] bool unregisterAndReturnError(Error& error) const;

 private:
  using Object::Object;
};

}  // namespace NS
