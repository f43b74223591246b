/**
 * @defgroup allocation Allocation
 *
 * Checked allocation: calls that never hand back an unnoticed null, and a debug mode that tracks,
 * checks, describes and reports every block.
 *
 * Life of a block: it is obtained from one of the calls below, belongs to its caller, may be
 * resized with one of the realloc calls, and is given back with orv_free(). A program that wants
 * the debug mode calls orv_enable_malloc_debug() before its first allocation.
 *
 * The calls come in two families that differ only in how a call describes itself in reports:
 *
 * - named-caller calls (orv_malloc() and so on) take the name of the calling function and what the
 *   storage is for; either text may be null;
 * - located calls (orv_malloc_at() and so on) take a method name, a source line and a source file,
 *   and are meant to be reached through macros such as ORV_MALLOC_ARRAY(); neither text may be
 *   null.
 *
 * The library keeps the pointers to these texts and never copies them: pass string literals, or
 * texts that live as long as the program.
 *
 * When the system refuses storage, a sentence says who asked, for what and how much. It goes to the
 * handler that orv_set_malloc_failure_handler() has installed, whose result becomes the call's
 * result; without a handler it is a fatal error, and the process ends with exit status 1. So with
 * no handler no result needs a test for null, except where a call's text says so.
 *
 * All state is process-wide and unguarded: use the calls from one thread.
 *
 * @code
 * #include <orv/alloc.h>
 * #include <stdio.h>
 *
 * int main(void) {
 *   int *squares;
 *   char *text;
 *   size_t i;
 *
 *   orv_enable_malloc_debug(ORV_MALLOC_CHECK_PTR);
 *   squares = ORV_MALLOC_ARRAY(int, 10);
 *   for (i = 0; i < 10; i++)
 *     squares[i] = (int)(i * i);
 *   text = orv_printf_strdup("the last square is %d", squares[9]);
 *   puts(text);
 *   orv_free(text);
 *   orv_free(squares);
 *   orv_malloc_debug_report(1);
 *   return 0;
 * }
 * @endcode
 */
#ifndef ORV_ALLOC_H
#define ORV_ALLOC_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__) || defined(__clang__)
#define ORV_API __attribute__((__visibility__("default")))
#define ORV_PRINTF(format_index, first_argument)                                                   \
  __attribute__((__format__(__printf__, format_index, first_argument)))
#define ORV_MUST_USE __attribute__((__warn_unused_result__))
#define ORV_SIZED(index) __attribute__((__alloc_size__(index)))
#define ORV_SIZED_PRODUCT(count_index, size_index)                                                 \
  __attribute__((__alloc_size__(count_index, size_index)))
/* Without an argument the attribute would promise two things that do not hold: that the result is
 * no storage the program knows already, as a failure handler's is, and that nobody else reads a
 * block, as debug mode does. */
#if !defined(__clang__) && __GNUC__ >= 11
#define ORV_NEW_BLOCK __attribute__((__malloc__(orv_free, 1)))
#else
#define ORV_NEW_BLOCK
#endif
#else
#define ORV_API
#define ORV_PRINTF(format_index, first_argument)
#define ORV_MUST_USE
#define ORV_SIZED(index)
#define ORV_SIZED_PRODUCT(count_index, size_index)
#define ORV_NEW_BLOCK
#endif
/* A null that a compiler sees in a call is warned of. The library's own sources, which test for it
 * at run time, and its tests, which try it, are left out. */
#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wgcc-compat"
#endif
#if defined(__clang__) && !defined(ORV_BUILDING)
#define ORV_NOT_NULL(index, parameter)                                                             \
  __attribute__((                                                                                  \
      __diagnose_if__(!(parameter), "null where " #parameter " may not be null", "warning")))
#elif defined(__GNUC__) && !defined(ORV_BUILDING)
#define ORV_NOT_NULL(index, parameter) __attribute__((__nonnull__(index)))
#else
#define ORV_NOT_NULL(index, parameter)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @addtogroup allocation
 * @{
 */

/**
 * @defgroup orv_alloc_named Allocating under the caller's name
 *
 * The everyday calls: each is told the name of the calling function and what the storage is for.
 * @{
 */

/**
 * Gives back a block.
 *
 * With debug mode on, the block is checked first (see orv_enable_malloc_debug()), its bytes are
 * overwritten with 0xAB, and only blocks that were obtained in debug mode are accepted.
 *
 * @param block a block of one of the allocation calls; null is ignored. An address that is not a
 *   multiple of 8 ends the process with exit status 1, in every mode.
 */
ORV_API void orv_free(void *block);

/**
 * Allocates a block whose bytes are undefined.
 *
 * @param size bytes; with 0 nothing is allocated.
 * @param function the name of the calling function, or null.
 * @param purpose what the storage is for, or null.
 * @return the block, to be given back with orv_free(); null for size 0. When the system refuses,
 *   what the failure handler returns. It is aligned for any type; with debug mode on only to a
 *   multiple of 8, and its bytes are then filled with 0xAB.
 */
ORV_API void *orv_malloc(size_t size, const char *function, const char *purpose) ORV_NEW_BLOCK
    ORV_SIZED(1) ORV_MUST_USE;

/**
 * Allocates an array whose bytes are zero.
 *
 * The product of count and size is taken without a test for overflow: check sizes that come from
 * outside before the call, or too small a block is returned.
 *
 * @param count elements.
 * @param size bytes in each.
 * @param function the name of the calling function, or null.
 * @param purpose what the storage is for, or null.
 * @return as orv_malloc(); null when count or size is 0.
 */
ORV_API void *orv_calloc(size_t count, size_t size, const char *function,
                         const char *purpose) ORV_NEW_BLOCK ORV_SIZED_PRODUCT(1, 2) ORV_MUST_USE;

/**
 * Resizes a block, which may move. Bytes that it gains are undefined, in debug mode too.
 *
 * When the system refuses, the old block stays valid and with the caller. With debug mode on,
 * however, its record has been given back by then: releasing it is reported as a stale pointer.
 *
 * @param block a block of one of the allocation calls; null to allocate as orv_malloc() does. A bad
 *   one ends the process as with orv_free().
 * @param size the new size in bytes; with 0 the block is given back with orv_free().
 * @param function the name of the calling function, or null.
 * @param purpose what the storage is for, or null.
 * @return the resized block; null for size 0. When the system refuses, what the failure handler
 *   returns.
 */
ORV_API void *orv_realloc(void *block, size_t size, const char *function, const char *purpose)
    ORV_SIZED(2) ORV_MUST_USE;

/**
 * Copies a text.
 *
 * @param text the text; null is answered with null.
 * @param function the name of the calling function, or null.
 * @param purpose what the copy is for, or null.
 * @return the copy, to be given back with orv_free(). When the system refuses, what the failure
 *   handler returns, and nothing is copied into it.
 */
ORV_API char *orv_strdup(const char *text, const char *function,
                         const char *purpose) ORV_NEW_BLOCK ORV_MUST_USE;

/**
 * Joins two texts in a new block.
 *
 * On the way a copy of each text is made that stays allocated for good: three blocks are allocated,
 * of which only the last is returned. Use orv_printf_strdup("%s%s", text1, text2) where that
 * matters.
 *
 * @param text1 the first text. A null text, here or in text2, is a mistake of the caller that ends
 *   the process through an assertion.
 * @param text2 the text to follow it.
 * @param function the name of the calling function, or null.
 * @param purpose what the text is for, or null.
 * @return the joined text, to be given back with orv_free(). When the system refuses, what the
 *   failure handler returns.
 */
ORV_API char *orv_strdup2(const char *text1, const char *text2, const char *function,
                          const char *purpose) ORV_NEW_BLOCK ORV_MUST_USE ORV_NOT_NULL(1, text1)
    ORV_NOT_NULL(2, text2);

/**
 * Formats into a new text as large as it needs to be.
 *
 * Sets errno to 0 on the way.
 *
 * @param format a format as for printf, with its arguments in args.
 * @param args the arguments; undefined afterwards, as with vprintf.
 * @return the text, to be given back with orv_free(); null when the text cannot be formatted (errno
 *   tells why: EILSEQ, EOVERFLOW), or when storage is refused and the failure handler returns null.
 */
ORV_API char *orv_vprintf_strdup(const char *format, va_list args) ORV_NEW_BLOCK
    ORV_PRINTF(1, 0) ORV_MUST_USE;

/**
 * orv_vprintf_strdup() with the arguments listed in the call.
 * @param format,... a format as for printf, and its arguments
 * @return as orv_vprintf_strdup()
 */
ORV_API char *orv_printf_strdup(const char *format, ...) ORV_NEW_BLOCK
    ORV_PRINTF(1, 2) ORV_MUST_USE;

/** @} */

/**
 * @defgroup orv_alloc_if_room Allocating where a refusal can be borne
 *
 * These answer a refusal for lack of storage (errno ENOMEM) with null and report nothing. A refusal
 * with any other errno is reported as by the other calls.
 * @{
 */

/**
 * orv_malloc(), but null, with errno ENOMEM, when there is no storage left.
 * @param size bytes; with 0 nothing is allocated
 * @return the block, to be given back with orv_free(); null for size 0 and when there is no storage
 *   left
 */
ORV_API void *orv_malloc_if_room(size_t size) ORV_NEW_BLOCK ORV_SIZED(1) ORV_MUST_USE;

/**
 * orv_calloc(), but null, with errno ENOMEM, when there is no storage left.
 * @param count elements
 * @param size bytes in each
 * @return as orv_malloc_if_room(); null when count or size is 0
 */
ORV_API void *orv_calloc_if_room(size_t count, size_t size) ORV_NEW_BLOCK
    ORV_SIZED_PRODUCT(1, 2) ORV_MUST_USE;

/**
 * orv_realloc(), but null, with errno ENOMEM, when there is no storage left.
 *
 * The old block then stays with the caller. With debug mode on it can be used, but no longer be
 * given back through the library: see orv_realloc().
 *
 * @param block a block of one of the allocation calls, or null
 * @param size the new size in bytes; with 0 the block is given back
 * @return the resized block; null for size 0 and when there is no storage left
 */
ORV_API void *orv_realloc_if_room(void *block, size_t size) ORV_SIZED(2) ORV_MUST_USE;

/** @} */

/**
 * @defgroup orv_alloc_located Allocating from a source line
 *
 * Each is its named-caller counterpart with another description of the caller, for macros that pass
 * their own name and place. Reports name the method, also where a bad block is given to
 * orv_realloc_at().
 * @{
 */

/**
 * orv_malloc() for a macro.
 *
 * @param size as for orv_malloc().
 * @param method the macro's name; not null.
 * @param line the line that it was used in.
 * @param file the file that it was used in; not null.
 * @return as orv_malloc().
 */
ORV_API void *orv_malloc_at(size_t size, const char *method, int line,
                            const char *file) ORV_NEW_BLOCK ORV_SIZED(1) ORV_MUST_USE
    ORV_NOT_NULL(2, method) ORV_NOT_NULL(4, file);

/**
 * orv_calloc() for a macro.
 * @param count elements
 * @param size bytes in each
 * @param method the macro's name; not null
 * @param line the line that it was used in
 * @param file the file that it was used in; not null
 * @return as orv_calloc()
 */
ORV_API void *orv_calloc_at(size_t count, size_t size, const char *method, int line,
                            const char *file) ORV_NEW_BLOCK ORV_SIZED_PRODUCT(1, 2) ORV_MUST_USE
    ORV_NOT_NULL(3, method) ORV_NOT_NULL(5, file);

/**
 * orv_realloc() for a macro.
 * @param block as for orv_realloc()
 * @param size as for orv_realloc()
 * @param method the macro's name; not null
 * @param line the line that it was used in
 * @param file the file that it was used in; not null
 * @return as orv_realloc()
 */
ORV_API void *orv_realloc_at(void *block, size_t size, const char *method, int line,
                             const char *file) ORV_SIZED(2) ORV_MUST_USE ORV_NOT_NULL(3, method)
    ORV_NOT_NULL(5, file);

/**
 * orv_strdup() for a macro.
 * @param text as for orv_strdup()
 * @param method the macro's name; not null
 * @param line the line that it was used in
 * @param file the file that it was used in; not null
 * @return as orv_strdup()
 */
ORV_API char *orv_strdup_at(const char *text, const char *method, int line,
                            const char *file) ORV_NEW_BLOCK ORV_MUST_USE ORV_NOT_NULL(2, method)
    ORV_NOT_NULL(4, file);

/**
 * orv_strdup2() for a macro.
 * @param text1 as for orv_strdup2()
 * @param text2 as for orv_strdup2()
 * @param method the macro's name; not null
 * @param line the line that it was used in
 * @param file the file that it was used in; not null
 * @return as orv_strdup2()
 */
ORV_API char *orv_strdup2_at(const char *text1, const char *text2, const char *method, int line,
                             const char *file) ORV_NEW_BLOCK ORV_MUST_USE ORV_NOT_NULL(1, text1)
    ORV_NOT_NULL(2, text2) ORV_NOT_NULL(3, method) ORV_NOT_NULL(5, file);

/** @} */

/**
 * @defgroup orv_alloc_settings Refused storage, and what was asked for
 *
 * What happens when the system refuses storage, and how much was asked of it.
 * @{
 */

/**
 * What a program does about refused storage.
 *
 * The handler may call the allocation calls itself (a refusal in there calls it again), and it sees
 * errno as the system left it.
 *
 * @param size the bytes that the caller wanted.
 * @param message the sentence about the refusal, without a newline; valid until the handler
 *   returns.
 * @return what the allocation call is to return: a block of at least size bytes, or null. It is
 *   passed on as it is, neither filled nor copied into, and debug mode does not know it:
 *   giving it to orv_free() or a realloc call is then reported as a mistake.
 */
typedef void *(*orv_malloc_failure_handler)(size_t size, const char *message);

/**
 * Installs the handler for refused storage.
 *
 * @param handler the handler; null for none, which makes every reported refusal a fatal error.
 * @return the handler that was installed before; null at first.
 */
ORV_API orv_malloc_failure_handler
orv_set_malloc_failure_handler(orv_malloc_failure_handler handler);

/**
 * Tells how many bytes the calls have asked of the system since the process started.
 *
 * Refused requests count, releases do not, and debug mode asks for more than the caller did.
 *
 * @return the sum modulo 2 to the 32.
 */
ORV_API uint32_t orv_malloc_bytes_requested(void);

/** @} */

/**
 * @defgroup orv_alloc_debug Debug mode
 *
 * In debug mode every block lies between an index and a magic word before it and a magic word
 * behind it, and has a record in a table. A block of n bytes takes 4 * ceil(n / 4) + 12 bytes of
 * the system's, plus 48 for its record, and is aligned to a multiple of 8 only: types that need 16
 * (long double, vectors) do not belong in it.
 *
 * What is caught: giving back or resizing an address that was never handed out, a block that was
 * given back already, and a block whose surroundings were overwritten. The process then ends with
 * exit status 1 and a sentence that says what is wrong with the pointer, who allocated the block
 * and which call it was given to. A block given back twice is told as such until its address is
 * handed out again or its record serves another block. The 8 bytes before any pointer that the
 * calls are given must be readable, or the process ends by a signal: so it does when a large block
 * is given back twice, whose memory the system has taken away.
 *
 * Compilers know the sizes of blocks. With _FORTIFY_SOURCE the C library itself ends the program at
 * an overrun by one of its own calls (strcpy(), memset()), before debug mode can tell whose block
 * it was: leave that out where overruns are looked for.
 * @{
 */

/** Check each block when it is given back or resized. */
#define ORV_MALLOC_CHECK_PTR 1
/** The same, and check every block before each allocation and release: cost grows with the blocks.
 */
#define ORV_MALLOC_VERIFY_HEAP 2

/**
 * Switches debug mode on, for the rest of the process.
 *
 * Once on, the two modes may be exchanged at any time. These mistakes end the process with exit
 * status 1: switching on after any allocation call has been made with something to allocate,
 * switching off (mode 0) what is on, any other mode.
 *
 * @param mode ORV_MALLOC_CHECK_PTR or ORV_MALLOC_VERIFY_HEAP; 0 is accepted while debug mode is off
 *   and does nothing.
 */
ORV_API void orv_enable_malloc_debug(int mode);

/**
 * Tells the debug mode.
 * @return the mode; 0 while debug mode is off
 */
ORV_API int orv_malloc_debug_mode(void);

/**
 * Tells how many bytes are allocated at present, not counting what surrounds them.
 *
 * @return the sum of the sizes asked for, modulo 2 to the 32. With debug mode off nothing is summed
 *   up: a warning says so, and the result is 0.
 */
ORV_API uint32_t orv_malloc_mem_used(void);

/**
 * Prints, as an informational message, what is known of a pointer: whether it is a valid block,
 * damaged, or given back, and how it was allocated. With debug mode off only a warning is written.
 *
 * @param pointer any address; the 8 bytes before it are read unless it is null or not a multiple of
 *   8, so an address of no mapped memory ends the process by a signal.
 */
ORV_API void orv_malloc_describe_ptr(const void *pointer);

/**
 * Prints, as informational messages, how many blocks are allocated, and how many of them are
 * damaged. With debug mode off only a warning is written.
 *
 * Identifiers in the list are reused: a block takes that of the block given back last.
 *
 * @param verbose not 0 to list every block first.
 */
ORV_API void orv_malloc_debug_report(int verbose);

/**
 * Has a warning written whenever, in debug mode, a block of at least so many bytes is given back or
 * resized.
 *
 * @param size bytes; a negative size, as at first, stops the warnings.
 */
ORV_API void orv_set_malloc_free_report_threshold(int size);

/** @} */
/** @} */

#ifdef __cplusplus
}
/* NOLINTNEXTLINE(bugprone-macro-parentheses): a type cannot be put into parentheses here. */
#define ORV_TYPED_(type, block) (static_cast<type *>(block))
#else
#define ORV_TYPED_(type, block) ((type *)(block))
#endif

/**
 * @defgroup orv_alloc_macros Allocating by type
 * @ingroup allocation
 *
 * Located calls with the macro's own name as method; each result has the type asked for.
 * @{
 */

/** Allocates an array of count elements, their bytes undefined; null when count is 0. */
#define ORV_MALLOC_ARRAY(type, count)                                                              \
  ORV_TYPED_(type, orv_malloc_at((count) * sizeof(type), "ORV_MALLOC_ARRAY", __LINE__, __FILE__))

/** Allocates one structure, its bytes undefined. */
#define ORV_MALLOC_STRUCT(type)                                                                    \
  ORV_TYPED_(type, orv_malloc_at(sizeof(type), "ORV_MALLOC_STRUCT", __LINE__, __FILE__))

/** Allocates an array of count elements, their bytes zero; null when count is 0. */
#define ORV_CALLOC_ARRAY(type, count)                                                              \
  ORV_TYPED_(type, orv_calloc_at((count), sizeof(type), "ORV_CALLOC_ARRAY", __LINE__, __FILE__))

/** Copies one text as orv_strdup() does, or joins two as orv_strdup2() does, with all it keeps. */
#define ORV_STRDUP(...)                                                                            \
  ORV_STRDUP_CHOOSE_(__VA_ARGS__, ORV_STRDUP_TWO_, ORV_STRDUP_ONE_, unused)(__VA_ARGS__)

/** @} */

/* How ORV_STRDUP tells one argument from two. */
#define ORV_STRDUP_CHOOSE_(text1, text2, chosen, ...) chosen
#define ORV_STRDUP_ONE_(text) orv_strdup_at((text), "ORV_STRDUP", __LINE__, __FILE__)
#define ORV_STRDUP_TWO_(text1, text2)                                                              \
  orv_strdup2_at((text1), (text2), "ORV_STRDUP", __LINE__, __FILE__)

#undef ORV_API
#undef ORV_PRINTF
#undef ORV_MUST_USE
#undef ORV_SIZED
#undef ORV_SIZED_PRODUCT
#undef ORV_NEW_BLOCK
#undef ORV_NOT_NULL
#if defined(__clang__)
#pragma clang diagnostic pop
#endif

#endif
