/* In gnuplot's place under Wine, because Debian has none for Windows. The script that the program pipes into it goes, as a file
 * of the folder TARNWICK_DRAWINGS, to the shell script "draw" in there, which this system's own gnuplot runs for. Wine starts
 * such a script but does not wait for it: the file with its exit status says when it has ended. */
#include <fcntl.h>
#include <io.h>
#include <stdio.h>
#include <stdlib.h>
#include <windows.h>

int main(void)
{
    const char* const folder = getenv("TARNWICK_DRAWINGS");
    char script[MAX_PATH];
    char ended[MAX_PATH];
    char command[2 * MAX_PATH];
    snprintf(script, sizeof script, "%s/%lu-%lu", folder, GetCurrentProcessId(), GetTickCount());
    snprintf(ended, sizeof ended, "%s.ended", script);
    snprintf(command, sizeof command, "%s/draw %s", folder, script);

    FILE* const file = fopen(script, "wb");
    if (file == NULL)
        return 2;
    _setmode(_fileno(stdin), _O_BINARY);
    char buffer[65536];
    for (size_t count; (count = fread(buffer, 1, sizeof buffer, stdin)) > 0;)
        fwrite(buffer, 1, count, file);
    fclose(file);

    STARTUPINFOA startup = {.cb = sizeof startup};
    PROCESS_INFORMATION process = {0};
    if (!CreateProcessA(NULL, command, NULL, NULL, FALSE, 0, NULL, NULL, &startup, &process))
        return 3;
    FILE* status = NULL;
    for (int tries = 0; tries < 6000 && (status = fopen(ended, "rb")) == NULL; ++tries)
        Sleep(10);
    int result = 4;
    if (status == NULL || fscanf(status, "%d", &result) != 1)
        return 5;
    fclose(status);
    remove(ended);
    remove(script);
    return result;
}
