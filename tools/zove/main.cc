#include <cstdio>
int main() { std::puts("zove"); return 0; }
