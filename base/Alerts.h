// Alerts, one at a time, and what has to wait until none is open. Main thread only.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/Alert.h"

// As much of a text as an alert can show: 4,000 characters, each as a reader sees it, and an ellipsis where there are
// more. A character with marks beyond all measure ends the text too.
[[nodiscard]] std::string textForAlert(const std::string& text);

// An alert with these texts. It has the default button unless others are added.
[[nodiscard]] NS::Alert makeAlert(const std::string& message, const std::string& informative);

// Brings the application to the front and shows an alert, as soon as no other alert and no menu is open; returns at
// once. `make` is asked for it when its turn has come; none: nothing is to be told any more. `answered` gets the code
// of the button that was pressed. Nothing is shown when `owner` is gone by then, and nobody told when it goes while the
// alert is open, so that both may refer to the owner.
void presentAlert(std::weak_ptr<const void> owner, std::function<std::optional<NS::Alert>()> make,
                  std::function<void(long button)> answered = {});

// Does `work` on the main run loop as soon as no alert and no menu is open, after what has been waiting for that
// longer.
void whenNoAlertIsOpen(std::function<void()> work);
