#pragma once
// A RapidJSON document for one short-lived parse whose first 4 KiB of values
// live inside this object, so a local one keeps a typical event on the stack.
// RapidJSON's pool otherwise takes a 64 KiB chunk from the heap per document,
// and giving it back per event costs more than parsing the event (a free that
// size also consolidates the heap). Larger documents spill to the heap.
//
// Neither copyable nor movable: the document points into this object.

#include <rapidjson/document.h>

#include <cstddef>

namespace fact {

class StackDocument {
  public:
    StackDocument() : mAllocator(mChunk, sizeof mChunk), mDocument(&mAllocator) {}
    StackDocument(const StackDocument&) = delete;
    StackDocument& operator=(const StackDocument&) = delete;

    rapidjson::Document& get() { return mDocument; }

  private:
    alignas(std::max_align_t) char mChunk[4096];
    rapidjson::MemoryPoolAllocator<> mAllocator;
    rapidjson::Document mDocument;
};

}  // namespace fact
