/*
 * Leak: of the words that a text is cut into, only the longest is given back.
 */
#include <orv/alloc.h>
#include <orv/msg.h>
#include <string.h>

/* The next word of the text, as a new block, or null at its end. */
static char *next_word(const char **text) {
  *text += strspn(*text, " ");
  const size_t length = strcspn(*text, " ");
  if (length == 0)
    return NULL;
  char *word = orv_calloc(length + 1, 1, "next_word", "a word");
  memcpy(word, *text, length);
  *text += length;
  return word;
}

int main(void) {
  orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
  const char *text = "Measure twice, cut once";
  char *longest = ORV_STRDUP("");
  for (char *word; (word = next_word(&text)) != NULL;) {
    if (strlen(word) > strlen(longest))
      longest = word; /* the one before is lost, and so is every shorter word */
  }
  msg_print("The longest word is \"%s\".", longest);
  orv_free(longest);
  orv_malloc_debug_report(1);
  return 0;
}
