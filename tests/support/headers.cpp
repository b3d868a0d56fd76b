// Carries the precompiled headers of the tests, compiled as for the program that each test is.
int main() {}
