#include "mesh/memory.h"

#include "mesh/large_block.h"
#include "mesh/log.h"

#include <cstdlib>
#include <cstring>

namespace velmora {

namespace {

struct hook_entry {
    low_memory_hook hook;
    void* arg;
};

constexpr int k_max_hooks = 8;

hook_entry hooks[k_max_hooks];
int hook_count = 0;
bool hooks_running = false;

std::uint64_t calls = 0;   // since the last heap_fail_nth
std::uint64_t fail_at = 0; // the call that fails; 0 none
std::uint64_t blocks = 0;  // that are out

bool refuse_this_call()
{
    ++calls;
    return calls == fail_at;
}

// A hook that allocates may run out in turn: the nested round answers no at once.
bool ask_hooks()
{
    if (hooks_running) return false;
    hooks_running = true;
    bool freed = false;
    for (int i = 0; i < hook_count; ++i)
        freed = hooks[i].hook(hooks[i].arg) || freed;
    hooks_running = false;
    return freed;
}

} // namespace

void* heap_alloc(std::size_t size)
{
    if (size == 0 || refuse_this_call()) return nullptr;
    void* memory = take_large_block(size);
    if (!memory) memory = std::malloc(size);
    if (!memory && drop_large_blocks()) memory = std::malloc(size);
    if (!memory) return nullptr;
    ++blocks;
    return memory;
}

void* heap_realloc(void* memory, std::size_t new_size)
{
    if (!memory) return heap_alloc(new_size);
    if (new_size == 0 || refuse_this_call()) return nullptr;
    void* resized = nullptr;
    do {
        resized = std::realloc(memory, new_size);
    } while (!resized && drop_large_blocks());
    return resized;
}

void heap_free(void* memory)
{
    if (memory) --blocks;
    if (!keep_large_block(memory)) std::free(memory);
}

void heap_fail_nth(std::uint64_t nth)
{
    calls = 0;
    fail_at = nth;
}

std::uint64_t heap_calls()
{
    return calls;
}

std::uint64_t heap_blocks()
{
    return blocks;
}

bool mm_add_hook(low_memory_hook hook, void* arg)
{
    if (hook_count == k_max_hooks) return false;
    hooks[hook_count++] = {hook, arg};
    return true;
}

void mm_clear_hooks()
{
    hook_count = 0;
}

void* mm_malloc(std::size_t size)
{
    if (size == 0) return nullptr;
    do {
        if (void* memory = heap_alloc(size)) return std::memset(memory, 0, size);
    } while (ask_hooks());
    log_line("mm_malloc: no more memory available\n");
    return nullptr;
}

void* mm_realloc(void* memory, std::size_t old_size, std::size_t new_size)
{
    do {
        void* grown = heap_realloc(memory, new_size);
        if (!grown) continue;
        if (new_size > old_size)
            std::memset(static_cast<char*>(grown) + old_size, 0, new_size - old_size);
        return grown;
    } while (ask_hooks());
    log_line("mm_realloc: no more memory available\n");
    return nullptr;
}

} // namespace velmora
