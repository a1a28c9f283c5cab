// The cheapest program of a hook's shape: read all of stdin, write one line. The benchmark times
// hook runs against it, so it is built as most programs are: plain `cc -O2`, dynamically linked.
#include <stdio.h>

int main(void) {
    char buf[4096];
    size_t total = 0, n;
    while ((n = fread(buf, 1, sizeof buf, stdin)) > 0) total += n;
    printf("{\"read\": %zu}\n", total);
    return 0;
}
