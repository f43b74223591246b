/* A program that no layer can be preloaded into. */
int main(void) {
  return 0;
}
