// A program that has libraries loaded and does nothing.
int main() {}
