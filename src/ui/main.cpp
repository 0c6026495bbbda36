// Kestrel.exe: the window program.
#include <windows.h>

#include "ui/main_window.h"

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE, PWSTR, int showCommand) {
    return ui::RunApplication(instance, showCommand);
}
