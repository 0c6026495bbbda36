#include <cstdio>
int main() { std::puts("kestrel-cli"); return 0; }
