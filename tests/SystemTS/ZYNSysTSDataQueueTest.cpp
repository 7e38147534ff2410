#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <memory>
#include <thread>
#include <vector>

#include "ZYNSysFifoList.h"
#include "ZYNSysTSDataQueue.h"

TEST(ZYNSysTSDataQueueTest, EmptyQueueAndNullArguments) {
  for (int useSemaphore : {0, 1}) {
    std::unique_ptr<ZYNSysTSDataQueue> queue(ZYNSysTSDataQueue::CreateEmptyQueue(useSemaphore, -1));
    void* item = &item;
    EXPECT_EQ(queue->PopLast(&item, 5), 0) << useSemaphore;
    EXPECT_EQ(item, nullptr);
    EXPECT_EQ(queue->PopLast(nullptr, 5), -1);
    EXPECT_EQ(queue->PushFirst(nullptr), -1);
  }
}

// Two producers, two consumers blocked in PopLast; one stop marker per consumer ends it.
TEST(ZYNSysTSDataQueueTest, ProducersAndConsumersPassEveryItemOnceInOrder) {
  const int kPerProducer = 400;
  ZYNSysTSDataQueue queue(1, -1);
  std::vector<std::vector<int>> items(2, std::vector<int>(kPerProducer));
  int stop = 0;
  std::vector<std::vector<int*>> received(2);
  std::vector<std::thread> threads;
  for (int c = 0; c < 2; c++) {
    threads.emplace_back([&, c] {
      for (;;) {
        void* item = nullptr;
        if (queue.PopLast(&item, 0) != 1) continue;
        if (item == &stop) return;
        received[c].push_back(static_cast<int*>(item));
      }
    });
  }
  for (int p = 0; p < 2; p++) {
    threads.emplace_back([&, p] {
      for (int i = 0; i < kPerProducer; i++) {
        items[p][i] = p * kPerProducer + i;
        queue.PushFirst(&items[p][i]);
      }
    });
  }
  threads[2].join();
  threads[3].join();
  queue.PushFirst(&stop);
  queue.PushFirst(&stop);
  threads[0].join();
  threads[1].join();

  std::map<int, int> seen;
  for (std::vector<int*> const& got : received) {
    int last[2] = {-1, -1};
    for (int* item : got) {
      seen[*item]++;
      int producer = *item / kPerProducer;
      EXPECT_GT(*item, last[producer]) << "a consumer saw one producer's items out of order";
      last[producer] = *item;
    }
  }
  EXPECT_EQ(seen.size(), 2u * kPerProducer);
  for (auto const& entry : seen) EXPECT_EQ(entry.second, 1) << entry.first;
}

TEST(ZYNSysFifoListTest, RefusesNullArgumentsAndReportsEmpty) {
  fifo_list_elem dummy = {nullptr, nullptr};
  fifo_list_elem node = {nullptr, nullptr};
  fifo_list_elem* end = &dummy;
  fifo_list_elem* none = nullptr;
  fifo_list_elem* taken = nullptr;
  void* item = nullptr;
  EXPECT_EQ(enqueue(nullptr, end), -1);
  EXPECT_EQ(enqueue(&node, none), -1);
  EXPECT_EQ(dequeue(taken, nullptr, end, end), -1);
  EXPECT_EQ(dequeue(taken, &item, none, end), -1);
  EXPECT_EQ(dequeue(taken, &item, end, end), 0);
}

// The consumer keeps the old dummies until the producers are done: a producer may still
// be reading a node that has just left the queue.
TEST(ZYNSysFifoListTest, ConcurrentEnqueuesAllArriveOnceInProducerOrder) {
  const int kPerProducer = 2000;
  fifo_list_elem* head = new fifo_list_elem{nullptr, nullptr};
  fifo_list_elem* tail = head;
  std::vector<fifo_list_elem*> taken;
  std::vector<intptr_t> got;
  std::atomic<int> producersDone{0};
  std::vector<std::thread> producers;
  for (intptr_t p = 0; p < 2; p++) {
    producers.emplace_back([&, p] {
      for (intptr_t i = 1; i <= kPerProducer; i++) {
        enqueue(new fifo_list_elem{reinterpret_cast<void*>(p * 100000 + i), nullptr}, tail);
      }
      producersDone++;
    });
  }
  for (;;) {
    fifo_list_elem* old = nullptr;
    void* item = nullptr;
    int result = dequeue(old, &item, head, tail);
    if (result == 1) {
      taken.push_back(old);
      got.push_back(reinterpret_cast<intptr_t>(item));
    } else if (producersDone == 2) {
      if (dequeue(old, &item, head, tail) == 0) break;
      taken.push_back(old);
      got.push_back(reinterpret_cast<intptr_t>(item));
    }
  }
  for (std::thread& producer : producers) producer.join();
  for (fifo_list_elem* node : taken) delete node;
  delete head;
  ASSERT_EQ(got.size(), 2u * kPerProducer);
  intptr_t last[2] = {0, 100000};
  for (intptr_t value : got) {
    intptr_t& previous = last[value / 100000];
    EXPECT_EQ(value, previous + 1);
    previous = value;
  }
}
