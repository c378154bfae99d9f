// NSAlert. Main thread only.
#pragma once

#include <string>

#include "platform/Error.h"
#include "platform/Object.h"

namespace NS {

// What `runModal` answers when the user presses the first button; each further button answers one more.
inline constexpr long AlertFirstButtonReturn = 1000;

class Alert : public Object {
 public:
  static Alert make();
  // The system's alert for an error.
  static Alert alertWithError(const Error& error);

  void setMessageText(const std::string& text) const;
  void setInformativeText(const std::string& text) const;
  // Adds a button; the first one added is the default. An alert that is given none shows one button, "OK".
  void addButtonWithTitle(const std::string& title) const;
  // Shows the alert and waits for the user, with the run loop in the modal mode. Answers the button's code.
  [[nodiscard]] long runModal() const;

 private:
  using Object::Object;
};

}  // namespace NS
