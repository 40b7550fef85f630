// The floor the hook's latency is measured against: a static program that
// only reads its standard input to the end and exits.
#include <unistd.h>

int main() {
    char buffer[65536];
    while (read(STDIN_FILENO, buffer, sizeof buffer) > 0) {
    }
    return 0;
}
