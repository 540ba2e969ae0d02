// Placeholder until the reader benchmark lands.
int main() { return 0; }
