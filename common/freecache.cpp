// SPDX-License-Identifier: MIT
// Free caches: released objects of one size, kept for reuse.
#include "common/freecache.h"

#include <cstdlib>
#include <cstring>

#include "common/alloc.h"
#include "common/check.h"

freecache *freecache_new(std::size_t obj_size, std::uint32_t max_objs)
{
    CHECK_STATE(obj_size != 0, "obj_size != 0");
    CHECK_STATE(max_objs != 0, "max_objs != 0");
    CHECK_STATE(obj_size >= sizeof(void *), "obj_size >= sizeof (void*)");
    return xnew(freecache{.obj_size = obj_size, .max_objs = max_objs});
}

void *freecache_get(freecache *cache)
{
    if (cache == nullptr) {
        return nullptr;
    }
    if (cache->head == nullptr) {
        return xalloc(cache->obj_size);
    }
    void *object = cache->head;
    std::memcpy(&cache->head, object, sizeof(void *));
    --cache->count;
    return std::memset(object, 0, cache->obj_size);
}

std::uint32_t freecache_put(freecache *cache, void *object)
{
    CHECK_STATE(cache != nullptr, "fc != NULL");
    CHECK_STATE(object != nullptr, "obj != NULL");
    if (cache->count >= cache->max_objs) {
        std::free(object);
        return 0;
    }
    std::memcpy(object, &cache->head, sizeof(void *));
    cache->head = object;
    return ++cache->count;
}
