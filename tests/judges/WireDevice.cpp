// Preloaded into a program that talks to monitors by a Linux device file: leads /dev/i2c-* to a simulated bus, on which
// also the time passes that the program sleeps. Nothing else of the program's is touched but that it starts no helpers,
// which would look for real hardware.
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <string_view>

#include "tests/judges/Wire.h"

namespace {

int bus() {
  const char* const number = std::getenv(wire::socketVariable);
  return number ? std::atoi(number) : -1;
}

bool transfer(void* bytes, std::size_t count, ssize_t (*how)(int, void*, std::size_t)) {
  for (std::size_t done = 0; done < count;) {
    const ssize_t now = how(bus(), static_cast<char*>(bytes) + done, count - done);
    if (now <= 0) return false;
    done += static_cast<std::size_t>(now);
  }
  return true;
}
ssize_t send(int file, void* bytes, std::size_t count) { return write(file, bytes, count); }

// An errno, or 0.
int ask(wire::Request request, void* sent, void* wanted) {
  wire::Answer answer{};
  if (!transfer(&request, sizeof request, send) || (sent && !transfer(sent, request.count, send)) ||
      !transfer(&answer, sizeof answer, read)) {
    return EIO;
  }
  if (answer.error == 0 && wanted && !transfer(wanted, request.count, read)) return EIO;
  return answer.error;
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
  std::va_list arguments;
  va_start(arguments, flags);
  const int mode = va_arg(arguments, int);
  va_end(arguments);
  if (std::string_view(path).starts_with("/dev/i2c-")) return dup(bus());
  static const auto next = reinterpret_cast<int (*)(const char*, int, ...)>(dlsym(RTLD_NEXT, "open"));
  return next(path, flags, mode);
}

int ioctl(int, unsigned long request, ...) noexcept {
  if (request != I2C_RDWR) {
    errno = ENOTTY;
    return -1;
  }
  std::va_list arguments;
  va_start(arguments, request);
  const auto* const transfers = va_arg(arguments, const i2c_rdwr_ioctl_data*);
  va_end(arguments);
  for (std::uint32_t i = 0; i < transfers->nmsgs; ++i) {
    const i2c_msg& message = transfers->msgs[i];
    const bool reads = (message.flags & I2C_M_RD) != 0;
    const wire::Request asked{reads ? wire::What::read : wire::What::write, message.addr, message.len};
    errno = ask(asked, reads ? nullptr : message.buf, reads ? message.buf : nullptr);
    if (errno != 0) return -1;
  }
  return static_cast<int>(transfers->nmsgs);
}

int usleep(useconds_t time) {
  errno = ask({wire::What::sleep, 0, time}, nullptr, nullptr);
  return errno == 0 ? 0 : -1;
}

int system(const char*) { return -1; }

}  // extern "C"
