// The blocks runtime. A block that was copied is an Objective-C object here and keeps the objects
// that it captured, which Debian's own blocks library does not do. Defined in the executable, it
// serves GNUstep's libraries as well.

#import <Foundation/Foundation.h>

#include <cstdlib>
#include <cstring>

namespace {

constexpr int kCountMask = 0xffff;
constexpr int kHeap = 1 << 24;
constexpr int kHasHelpers = 1 << 25;
constexpr int kGlobal = 1 << 28;

constexpr int kFieldObject = 3;
constexpr int kFieldBlock = 7;
constexpr int kFieldCell = 8;
constexpr int kFieldOfCell = 128;

struct Descriptor {
    unsigned long reserved;
    unsigned long size;
    void (*copy)(void *to, const void *from);
    void (*dispose)(const void *block);
};

struct Block {
    void *isa;
    int flags;
    int reserved;
    void (*invoke)(void *, ...);
    Descriptor *descriptor;
};

// A variable declared __block.
struct Cell {
    void *isa;
    Cell *forwarding;
    int flags;
    int size;
    void (*keep)(Cell *to, Cell *from);
    void (*destroy)(Cell *);
};

void retainCount(int &flags) {
    __atomic_fetch_add(&flags, 1, __ATOMIC_RELAXED);
}

// True when the last reference is gone.
bool releaseCount(int &flags) {
    return (__atomic_fetch_sub(&flags, 1, __ATOMIC_ACQ_REL) & kCountMask) == 1;
}

Cell *copyCell(Cell *cell) {
    cell = cell->forwarding;
    if (cell->flags & kHeap) {
        retainCount(cell->flags);
        return cell;
    }
    auto *copied = static_cast<Cell *>(std::malloc(static_cast<std::size_t>(cell->size)));
    std::memcpy(copied, cell, static_cast<std::size_t>(cell->size));
    copied->flags = (cell->flags & ~kCountMask) | kHeap | 2;  // the block's and the stack frame's
    copied->forwarding = cell->forwarding = copied;
    if (cell->flags & kHasHelpers) {
        copied->keep(copied, cell);
    }
    return copied;
}

void releaseCell(Cell *cell) {
    cell = cell->forwarding;
    if (!(cell->flags & kHeap) || !releaseCount(cell->flags)) {
        return;
    }
    if (cell->flags & kHasHelpers) {
        cell->destroy(cell);
    }
    std::free(cell);
}

}  // namespace

extern "C" {
void *_NSConcreteStackBlock[32];
void *_NSConcreteGlobalBlock[32];
void *_Block_copy(const void *source);
void _Block_release(const void *source);
void _Block_object_assign(void *to, const void *from, const int kind);
void _Block_object_dispose(const void *object, const int kind);
}

// The class of copied blocks.
@interface QuorvaneBlock : NSObject <NSCopying>
@end

@implementation QuorvaneBlock

- (id)retain {
    return static_cast<id>(_Block_copy(self));
}

- (oneway void)release {
    _Block_release(self);
}

- (id)copyWithZone:(NSZone *)zone {
    return static_cast<id>(_Block_copy(self));
}

@end

void *_Block_copy(const void *source) {
    if (!source) {
        return nullptr;
    }
    auto *block = static_cast<Block *>(const_cast<void *>(source));
    if (block->flags & kHeap) {
        retainCount(block->flags);
        return block;
    }
    auto *copied = static_cast<Block *>(std::malloc(block->descriptor->size));
    std::memcpy(copied, block, block->descriptor->size);
    copied->isa = [QuorvaneBlock class];
    copied->flags = (block->flags & ~(kCountMask | kGlobal)) | kHeap | 1;
    if (copied->flags & kHasHelpers) {
        copied->descriptor->copy(copied, block);
    }
    return copied;
}

void _Block_release(const void *source) {
    auto *block = static_cast<Block *>(const_cast<void *>(source));
    if (!block || !(block->flags & kHeap) || !releaseCount(block->flags)) {
        return;
    }
    if (block->flags & kHasHelpers) {
        block->descriptor->dispose(block);
    }
    std::free(block);
}

void _Block_object_assign(void *to, const void *from, const int kind) {
    void *object = const_cast<void *>(from);
    if (kind & kFieldOfCell) {
        // A __block variable does not retain what it points to.
    } else if (kind & kFieldCell) {
        object = copyCell(static_cast<Cell *>(object));
    } else if ((kind & kFieldBlock) == kFieldBlock) {
        object = _Block_copy(object);
    } else if ((kind & kFieldObject) == kFieldObject) {
        [static_cast<id>(object) retain];
    }
    *static_cast<void **>(to) = object;
}

void _Block_object_dispose(const void *from, const int kind) {
    void *object = const_cast<void *>(from);
    if (kind & kFieldOfCell) {
        return;
    }
    if (kind & kFieldCell) {
        releaseCell(static_cast<Cell *>(object));
    } else if ((kind & kFieldBlock) == kFieldBlock) {
        _Block_release(object);
    } else if ((kind & kFieldObject) == kFieldObject) {
        [static_cast<id>(object) release];
    }
}
