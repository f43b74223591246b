// Files copied as APR does it.
#include "copying.h"

#include <apr_file_io.h>
#include <apr_general.h>

namespace {

apr_pool_t *pool;

// The pool keeps what a copy needs until it is cleared.
bool copy(const char *source, const char *destination) {
  const bool copied = apr_file_copy(source, destination, APR_FPROT_OS_DEFAULT, pool) == APR_SUCCESS;
  apr_pool_clear(pool);
  return copied;
}

template <void (*make)(const bench::Job &)> void prepare(const bench::Job &job) {
  if (apr_initialize() != APR_SUCCESS || apr_pool_create(&pool, nullptr) != APR_SUCCESS)
    bench::die("apr_initialize");
  make(job);
}

constexpr bench::Contender kContenders[] = {
    {"apr-large", prepare<copying::make_large>, copying::copy_large<copy>},
    {"apr-small", prepare<copying::make_small>, copying::copy_small<copy>},
};

} // namespace

int main(int argc, char **argv) {
  return bench::run(argc, argv, kContenders);
}
