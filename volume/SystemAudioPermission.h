// The user's consent to recording the system's audio.
//
// The system has no public call for it, so its private consent library is loaded at run time. Usable from any thread.
#pragma once

namespace SystemAudioPermission {

enum class Status { authorized, denied, notDetermined };

// Throws an AppError when the library or its function is missing.
Status status();

// Asks the user, if the answer is still open, and then calls `completion` with whether access is granted, on any
// thread. Throws an AppError, without ever calling `completion`, when the library or its function is missing.
void request(void (^completion)(bool granted));

}  // namespace SystemAudioPermission
