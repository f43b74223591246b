/* Calls in a program of a user's: written in C, and optimised, as the other tests are not. What the
 * headers tell a compiler of a call may not lead it to drop or foresee any of these. */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/* With storage refused and a handler installed that lends an area: whether it is the result. */
int malloc_gives_what_was_lent(void);
int strdup_gives_what_was_lent(void);

/* What stands in the lent area after a byte was written through the call's result. */
char written_through_a_lent_block(char byte);

/* Overwrites one byte, that many after the beginning of a text of 4 bytes, and allocates again. */
void overrun_text(int offset);

#ifdef __cplusplus
}
#endif
