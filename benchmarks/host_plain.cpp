// A program that does nothing, linked with different libraries.

int main() {
  return 0;
}
