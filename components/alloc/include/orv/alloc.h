/*
 * Checked allocation: calls that never hand back an unnoticed null, and a debug mode that tracks,
 * checks, describes and reports every block.
 */
#ifndef ORV_ALLOC_H
#define ORV_ALLOC_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__) || defined(__clang__)
#define ORV_API __attribute__((visibility("default")))
#define ORV_PRINTF(format_index, first_argument)                                                   \
  __attribute__((format(printf, format_index, first_argument)))
#define ORV_MUST_USE __attribute__((warn_unused_result))
#define ORV_SIZED(index) __attribute__((alloc_size(index)))
#define ORV_SIZED_PRODUCT(count_index, size_index)                                                 \
  __attribute__((alloc_size(count_index, size_index)))
#if !defined(__clang__) && __GNUC__ >= 11
#define ORV_NEW_BLOCK __attribute__((malloc, malloc(orv_free, 1)))
#else
#define ORV_NEW_BLOCK __attribute__((malloc))
#endif
#else
#define ORV_API
#define ORV_PRINTF(format_index, first_argument)
#define ORV_MUST_USE
#define ORV_SIZED(index)
#define ORV_SIZED_PRODUCT(count_index, size_index)
#define ORV_NEW_BLOCK
#endif

#ifdef __cplusplus
extern "C" {
#endif

#define ORV_MALLOC_CHECK_PTR 1
#define ORV_MALLOC_VERIFY_HEAP 2

typedef void *(*orv_malloc_failure_handler)(size_t size, const char *message);

ORV_API void orv_free(void *block);

ORV_API void *orv_malloc(size_t size, const char *function, const char *purpose) ORV_NEW_BLOCK
    ORV_SIZED(1) ORV_MUST_USE;
ORV_API void *orv_calloc(size_t count, size_t size, const char *function,
                         const char *purpose) ORV_NEW_BLOCK ORV_SIZED_PRODUCT(1, 2) ORV_MUST_USE;
ORV_API void *orv_realloc(void *block, size_t size, const char *function, const char *purpose)
    ORV_SIZED(2) ORV_MUST_USE;
ORV_API char *orv_strdup(const char *text, const char *function,
                         const char *purpose) ORV_NEW_BLOCK ORV_MUST_USE;
ORV_API char *orv_strdup2(const char *text1, const char *text2, const char *function,
                          const char *purpose) ORV_NEW_BLOCK ORV_MUST_USE;

ORV_API void *orv_malloc_if_room(size_t size) ORV_NEW_BLOCK ORV_SIZED(1) ORV_MUST_USE;
ORV_API void *orv_calloc_if_room(size_t count, size_t size) ORV_NEW_BLOCK
    ORV_SIZED_PRODUCT(1, 2) ORV_MUST_USE;
ORV_API void *orv_realloc_if_room(void *block, size_t size) ORV_SIZED(2) ORV_MUST_USE;

ORV_API void *orv_malloc_at(size_t size, const char *method, int line,
                            const char *file) ORV_NEW_BLOCK ORV_SIZED(1) ORV_MUST_USE;
ORV_API void *orv_calloc_at(size_t count, size_t size, const char *method, int line,
                            const char *file) ORV_NEW_BLOCK ORV_SIZED_PRODUCT(1, 2) ORV_MUST_USE;
ORV_API void *orv_realloc_at(void *block, size_t size, const char *method, int line,
                             const char *file) ORV_SIZED(2) ORV_MUST_USE;
ORV_API char *orv_strdup_at(const char *text, const char *method, int line,
                            const char *file) ORV_NEW_BLOCK ORV_MUST_USE;
ORV_API char *orv_strdup2_at(const char *text1, const char *text2, const char *method, int line,
                             const char *file) ORV_NEW_BLOCK ORV_MUST_USE;

ORV_API char *orv_vprintf_strdup(const char *format, va_list args) ORV_NEW_BLOCK
    ORV_PRINTF(1, 0) ORV_MUST_USE;
ORV_API char *orv_printf_strdup(const char *format, ...) ORV_NEW_BLOCK
    ORV_PRINTF(1, 2) ORV_MUST_USE;

ORV_API orv_malloc_failure_handler
orv_set_malloc_failure_handler(orv_malloc_failure_handler handler);
ORV_API uint32_t orv_malloc_bytes_requested(void);

ORV_API void orv_enable_malloc_debug(int mode);
ORV_API int orv_malloc_debug_mode(void);
ORV_API uint32_t orv_malloc_mem_used(void);
ORV_API void orv_malloc_describe_ptr(const void *pointer);
ORV_API void orv_malloc_debug_report(int verbose);
ORV_API void orv_set_malloc_free_report_threshold(int size);

#ifdef __cplusplus
}
#define ORV_TYPED_(type, block) (static_cast<type *>(block))
#else
#define ORV_TYPED_(type, block) ((type *)(block))
#endif

#define ORV_MALLOC_ARRAY(type, count)                                                              \
  ORV_TYPED_(type, orv_malloc_at((count) * sizeof(type), "ORV_MALLOC_ARRAY", __LINE__, __FILE__))
#define ORV_MALLOC_STRUCT(type)                                                                    \
  ORV_TYPED_(type, orv_malloc_at(sizeof(type), "ORV_MALLOC_STRUCT", __LINE__, __FILE__))
#define ORV_CALLOC_ARRAY(type, count)                                                              \
  ORV_TYPED_(type, orv_calloc_at((count), sizeof(type), "ORV_CALLOC_ARRAY", __LINE__, __FILE__))

#define ORV_STRDUP(...)                                                                            \
  ORV_STRDUP_CHOOSE_(__VA_ARGS__, ORV_STRDUP_TWO_, ORV_STRDUP_ONE_, unused)(__VA_ARGS__)
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

#endif
