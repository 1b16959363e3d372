// What any program with a window takes that does nothing: bare_window COUNT shows no window, has COUNT threads in all,
// and waits until it is killed. bench/idle-agent builds it and measures it beside the user agent.
#include <windows.h>

#include <cstdlib>

namespace {

DWORD WINAPI WaitForever(void*) {
  Sleep(INFINITE);
  return 0;
}

}  // namespace

int WINAPI WinMain(HINSTANCE program, HINSTANCE, LPSTR arguments, int) {
  constexpr wchar_t kName[] = L"TvkBareWindow";
  WNDCLASSEXW description{};
  description.cbSize = sizeof description;
  description.lpfnWndProc = DefWindowProcW;
  description.hInstance = program;
  description.lpszClassName = kName;
  if (RegisterClassExW(&description) == 0 ||
      CreateWindowExW(0, kName, kName, WS_OVERLAPPEDWINDOW, CW_USEDEFAULT, 0, CW_USEDEFAULT, 0, nullptr, nullptr,
                      program, nullptr) == nullptr) {
    return 1;
  }
  for (int others = std::atoi(arguments) - 1; others > 0; --others) {
    if (CreateThread(nullptr, 0, WaitForever, nullptr, 0, nullptr) == nullptr) return 1;
  }
  MSG message{};
  while (GetMessageW(&message, nullptr, 0, 0) > 0)
    DispatchMessageW(&message);
  return 0;
}
