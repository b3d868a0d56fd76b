#include "unit/faults/failing_allocator.h"

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>

#include "dep/trell.h"
#include "link/owned.h"

namespace {

int left; // allocations until the one that fails
bool failed;
int in_use;

void *counted(void *memory)
{
    in_use += memory != nullptr ? 1 : 0;
    return memory;
}

bool fails()
{
    if (left == 0 || --left > 0) {
        return false;
    }
    failed = true;
    errno = ENOMEM;
    return true;
}

} // namespace

void allocation_fail_at(int number)
{
    left = number;
    failed = false;
}

bool allocation_has_failed()
{
    return failed;
}

int allocations_in_use()
{
    return in_use;
}

// The names that the linker gives.
extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real_realloc(void *memory, size_t size);
char *__real_strdup(const char *text);
char *__real_strndup(const char *text, size_t length);
int __real_vasprintf(char **text, const char *format, va_list arguments);

void *__wrap_malloc(size_t size);
void *__wrap_calloc(size_t count, size_t size);
void *__wrap_realloc(void *memory, size_t size);
char *__wrap_strdup(const char *text);
char *__wrap_strndup(const char *text, size_t length);
int __wrap_vasprintf(char **text, const char *format, va_list arguments);
int __wrap_asprintf(char **text, const char *format, ...);

void __real_free(void *memory);
void __wrap_free(void *memory);

void __wrap_free(void *memory)
{
    in_use -= memory != nullptr ? 1 : 0;
    __real_free(memory);
}

void *__wrap_malloc(size_t size)
{
    return fails() ? nullptr : counted(__real_malloc(size));
}

void *__wrap_calloc(size_t count, size_t size)
{
    return fails() ? nullptr : counted(__real_calloc(count, size));
}

void *__wrap_realloc(void *memory, size_t size)
{
    return fails() ? nullptr : __real_realloc(memory, size);
}

char *__wrap_strdup(const char *text)
{
    return fails() ? nullptr : static_cast<char *>(counted(__real_strdup(text)));
}

char *__wrap_strndup(const char *text, size_t length)
{
    return fails() ? nullptr : __real_strndup(text, length);
}

int __wrap_vasprintf(char **text, const char *format, va_list arguments)
{
    return fails() ? -1 : __real_vasprintf(text, format, arguments);
}

int __wrap_asprintf(char **text, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int length = __wrap_vasprintf(text, format, arguments);
    va_end(arguments);
    return length;
}

pid_t __real_process_spawn_pipe(const string_list *arguments, const char *const *environment,
                                const char *directory, int *in, int *out, int *error);
pid_t __wrap_process_spawn_pipe(const string_list *arguments, const char *const *environment,
                                const char *directory, int *in, int *out, int *error);

pid_t __wrap_process_spawn_pipe(const string_list *, const char *const *environment,
                                const char *directory, int *in, int *out, int *error)
{
    const StringList missing(_sl_new("/nonexistent/rpc-cmd.js"));
    return missing
               ? __real_process_spawn_pipe(missing.get(), environment, directory, in, out, error)
               : -1;
}
}
