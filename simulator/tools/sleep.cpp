// sleep(1). The machine's time is not the host's: programs that poll wait as little as is fair to others on the host.
#include <chrono>
#include <thread>

int main() {
  std::this_thread::sleep_for(std::chrono::milliseconds(2));
  return 0;
}
