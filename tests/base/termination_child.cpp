// "exit N" ends with code N (hex with 0x), "wait" waits until it is killed.
#include <windows.h>

#include <cstdlib>
#include <cstring>

int main(int argc, char** argv) {
  if (argc >= 3 && std::strcmp(argv[1], "exit") == 0)
    ExitProcess(static_cast<UINT>(std::strtoul(argv[2], nullptr, 0)));
  if (argc >= 2 && std::strcmp(argv[1], "wait") == 0) Sleep(INFINITE);
  return 0;
}
