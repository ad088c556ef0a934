// An empty program, linked with different libraries.

int main() {
  return 0;
}
