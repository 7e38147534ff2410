// ZYNAdmOutputStreamBuffer.cpp - a byte stream collected in memory.
#include "ZYNAdmOutputStreamBuffer.h"

#include <cstdlib>
#include <cstring>

struct ZYNAdmOutputStreamBuffer::Chunk {
  Chunk* next;
  int size;
  unsigned char* Data() { return reinterpret_cast<unsigned char*>(this + 1); }
};

ZYNAdmOutputStreamBuffer::~ZYNAdmOutputStreamBuffer() {
  while (_first != nullptr) {
    Chunk* next = _first->next;
    std::free(_first);
    _first = next;
  }
}

int ZYNAdmOutputStreamBuffer::Write(unsigned char* buffer, int count) {
  if (buffer == nullptr || count < 1) return 0;
  Chunk* chunk = static_cast<Chunk*>(std::malloc(sizeof(Chunk) + static_cast<size_t>(count)));
  if (chunk == nullptr) return 0;
  chunk->next = nullptr;
  chunk->size = count;
  std::memcpy(chunk->Data(), buffer, static_cast<size_t>(count));
  if (_last == nullptr) {
    _first = chunk;
  } else {
    _last->next = chunk;
  }
  _last = chunk;
  return count;
}

int ZYNAdmOutputStreamBuffer::GetBuffer(unsigned char*& data, int& size) {
  if (_first == nullptr) return 0;
  size_t total = 0;
  for (Chunk* c = _first; c != nullptr; c = c->next) total += static_cast<size_t>(c->size);
  unsigned char* block = static_cast<unsigned char*>(std::malloc(total));
  if (block == nullptr) return 0;
  size_t at = 0;
  for (Chunk* c = _first; c != nullptr; c = c->next) {
    std::memcpy(block + at, c->Data(), static_cast<size_t>(c->size));
    at += static_cast<size_t>(c->size);
  }
  data = block;
  size = static_cast<int>(total);
  return 1;
}
