// The companion command grows here; until then it only says what it is.
#include <cstdio>

int main() {
    std::puts("pelmora: companion command for the Pelmora notch");
    return 0;
}
