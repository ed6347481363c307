// "exit N" ends with code N (hex with 0x); anything else waits until it is killed.
#include <windows.h>

#include <cstdlib>

int main(int argc, char** argv) {
  if (argc >= 3) ExitProcess(static_cast<UINT>(std::strtoul(argv[2], nullptr, 0)));
  Sleep(INFINITE);
}
