// The pool of clients and the queue of requests, alone and under many threads.

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "product/SCA_TikaClientList.h"
#include "product/SCA_TikaRequestList.h"
#include "tests/support/ReportCapture.h"

namespace {

using Services = std::vector<unsigned long>;

std::atomic<int> livingRequests{0};

class CountedRequest : public SCA_TikaClientRequest {
 public:
  explicit CountedRequest(const Services& services) : SCA_TikaClientRequest("pdf", "Default") {
    for (const unsigned long id : services) GetServiceList()->AddItemToTail(id);
    livingRequests.fetch_add(1);
  }
  ~CountedRequest() override { livingRequests.fetch_sub(1); }
};

class Queue : public ::testing::Test {
 protected:
  SCA_TikaClient* NewClient(unsigned long serviceId) {
    clients_.push_back(std::make_unique<SCA_TikaClient>(&settings_, "host", 80));
    clients_.back()->SetServiceId(serviceId);
    return clients_.back().get();
  }
  SCA_TikaClient* AddClient(unsigned long serviceId) {
    SCA_TikaClient* client = NewClient(serviceId);
    unsigned long id = 77;
    EXPECT_EQ(pool_.AddClient(client, &id), 1);
    EXPECT_EQ(client->GetClientId(), id);
    return client;
  }
  SCA_TikaClientRequest* AddRequest(const Services& services) {
    requests_.push_back(std::make_unique<CountedRequest>(services));
    EXPECT_EQ(queue_.AddRequest(requests_.back().get()), 1);
    return requests_.back().get();
  }
  /// The combined take, as the two that it took; nulls when it found nothing.
  std::pair<SCA_TikaClientRequest*, SCA_TikaClient*> Take() {
    std::pair<SCA_TikaClientRequest*, SCA_TikaClient*> taken{nullptr, nullptr};
    const int found = queue_.TakeClientRequest(&pool_, &taken.first, &taken.second);
    EXPECT_EQ(found != 0, taken.first != nullptr && taken.second != nullptr);
    return taken;
  }

  SCA_TikaConfigOrv settings_;
  std::vector<std::unique_ptr<SCA_TikaClient>> clients_;
  std::vector<std::unique_ptr<SCA_TikaClientRequest>> requests_;
  SCA_TikaClientList pool_;
  SCA_TikaRequestList queue_;
};

using Taken = std::pair<SCA_TikaClientRequest*, SCA_TikaClient*>;

TEST_F(Queue, OldestRequestMeetsTheFirstClientOfItsServices) {
  SCA_TikaClient* one = AddClient(1);
  SCA_TikaClient* two = AddClient(2);
  SCA_TikaClient* other = AddClient(2);
  AddRequest({});
  SCA_TikaClientRequest* foreign = AddRequest({9});
  SCA_TikaClientRequest* first = AddRequest({2});
  SCA_TikaClientRequest* second = AddRequest({9, 2, 1});
  EXPECT_EQ(second->GetRequestId(), 3U);
  EXPECT_EQ(Take(), Taken(first, two));
  EXPECT_EQ(Take(), Taken(second, one)) << "the first client in the pool, not the first service";
  SCA_TikaClientRequest* third = AddRequest({2});
  SCA_TikaClientRequest* fourth = AddRequest({2});
  EXPECT_EQ(Take(), Taken(third, other));
  EXPECT_EQ(Take(), Taken()) << "no client is idle";
  pool_.AddClient(two, two->GetClientId());
  EXPECT_EQ(Take(), Taken(fourth, two));
  EXPECT_EQ(queue_.GetRequestCount(), 2U) << "without services or clients they stay";
  SCA_TikaClient* late = NewClient(9);
  SCA_TikaClientRequest* request = nullptr;
  EXPECT_EQ(queue_.TakeClientRequest(late, &request), 1);
  EXPECT_EQ(request, foreign);
  EXPECT_EQ(queue_.TakeClientRequest(late, &request), 0);
}

TEST_F(Queue, AbandonedRequestsAreDeletedOnTheWay) {
  AddClient(1);
  livingRequests = 0;
  for (int i = 0; i < 2; ++i) {
    auto* abandoned = new CountedRequest({1});
    queue_.AddRequest(abandoned);
    abandoned->SetProcessStatus(SCA_RequestAbandoned);
  }
  SCA_TikaClientRequest* wanted = AddRequest({1});
  auto* behind = new CountedRequest({1});
  queue_.AddRequest(behind);
  EXPECT_EQ(Take().first, wanted);
  EXPECT_EQ(livingRequests, 2);
  behind->SetProcessStatus(SCA_RequestAbandoned);
  SCA_TikaClientRequest* request = nullptr;
  EXPECT_EQ(queue_.TakeClientRequest(NewClient(7), &request), 0);
  EXPECT_EQ(livingRequests, 1) << "a take that finds nothing deletes too";
  EXPECT_EQ(queue_.GetRequestCount(), 0U);
}

// A pool or queue that one thread alone uses may be changed as any list.
TEST_F(Queue, CountsAreThoseOfTheListWhoeverChangesIt) {
  SCA_TikaClient* client = AddClient(1);
  pool_.AddItemToTail(client, 7UL);
  EXPECT_EQ(pool_.GetNumOfClients(), 2U);
  pool_.DeleteListItem(pool_.GetHead());
  EXPECT_EQ(pool_.GetNumOfClients(), 1U);
  SCA_TikaClientRequest* request = AddRequest({1});
  queue_.AddItemToHead(request);
  EXPECT_EQ(queue_.GetRequestCount(), 2U);
  EXPECT_EQ(Take().first, request);
  EXPECT_EQ(queue_.GetRequestCount(), 1U);
  EXPECT_EQ(pool_.GetNumOfClients(), 0U);
  EXPECT_EQ(queue_.RemoveRequest(request), 1);
  EXPECT_EQ(queue_.RemoveRequest(request), 0) << "taken back once";
  EXPECT_EQ(queue_.GetRequestCount(), 0U);
  AddRequest({1});
  queue_.Clear();
  EXPECT_EQ(queue_.GetRequestCount(), 0U);
  client = AddClient(1);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(pool_.RemoveClient(client->GetClientId()), 1) << "an absent client is no failure";
    EXPECT_EQ(pool_.GetNumOfClients(), 0U);
  }
}

TEST_F(Queue, ClientWhoseIdWasChangedLeavesThePoolAsTaken) {
  SCA_TikaClient* changed = AddClient(1);
  SCA_TikaClient* other = AddClient(2);
  changed->SetClientId(other->GetClientId());
  SCA_TikaClientRequest* request = AddRequest({1});
  EXPECT_EQ(Take(), Taken(request, changed));
  EXPECT_EQ(Take(), Taken());
  SCA_TikaClient* found = nullptr;
  EXPECT_EQ(pool_.GetClient(other->GetClientId(), &found), 1);
  EXPECT_EQ(found, other);
}

TEST_F(Queue, StatusShowsWhatIsThere) {
  AddClient(1);
  clients_.back()->SetProcessStatus(5);
  SCA_TikaClientRequest* request = AddRequest({1});
  request->SetStatusCode(9);
  const auto fields = [](const SCA_ConfigObj& object, const char* id) {
    std::string text;
    for (const SCA_Field* field = object.GetConfigObj(id)->GetFields().GetHead(); field != nullptr;
         field = field->GetNext()) {
      text += std::string(field->GetName()) + "=" + field->GetValue() + ";";
    }
    return text;
  };
  SCA_ConfigObj clients("c", nullptr);
  SCA_ConfigObj requests("r", nullptr);
  EXPECT_EQ(pool_.GetStatus(&clients), 1);
  EXPECT_EQ(queue_.GetStatus(&requests), 1);
  EXPECT_EQ(fields(clients, "0"),
            "Client Id=0;Host Name=host;Port Number=80;Object Valid=Yes;Connect Time=;"
            "Connect Count=0;Process Status=5;Status Code=0;Total Errors=0;Total Files=0;"
            "Sent Data=0 bytes;Recv Data=0 bytes;");
  EXPECT_EQ(fields(requests, "0"),
            "Request Id=0;Process Status=10;Status Code=9;File Extension=pdf;Pool Name=Default;"
            "Request Time=;");
  const ReportCapture reports;
  request->SetPoolName("\x01");
  EXPECT_EQ(queue_.GetStatus(&requests), 0);
  EXPECT_EQ(
      reports.All().back(),
      (CapturedReport{5, "SCA_TikaRequestList",
                      "SCA_TikaRequestList::GetStatus: cannot create request status object"}));
}

// Eight threads add, take, abandon and return; every request comes out once, or is deleted once.
TEST_F(Queue, NothingIsLostOrServedTwiceUnderManyThreads) {
  constexpr int kProducers = 4;
  constexpr int kConsumers = 4;
  constexpr int kEach = 3000;
  constexpr unsigned long kServices = 3;
  for (unsigned long i = 0; i < 6; ++i) AddClient(i % kServices);
  livingRequests = 0;
  std::atomic<int> served{0};
  std::atomic<int> abandoned{0};
  std::atomic<bool> isMismatched{false};
  std::atomic<bool> isOver{false};
  std::vector<std::thread> threads;
  for (int p = 0; p < kProducers; ++p) {
    threads.emplace_back([&, p] {
      std::mt19937 random(static_cast<unsigned>(p));
      for (int i = 0; i < kEach; ++i) {
        // A requester may only mark what nobody else deletes: so it keeps some to itself.
        auto* request = new CountedRequest({random() % kServices, random() % kServices});
        const bool isUnwanted = random() % 4 == 0;
        if (isUnwanted) request->GetServiceList()->Clear();
        queue_.AddRequest(request);
        if (!isUnwanted) continue;
        abandoned.fetch_add(1);
        request->SetProcessStatus(SCA_RequestAbandoned);
      }
    });
  }
  const auto finish = [&](SCA_TikaClientRequest* request, const SCA_TikaClient& client) {
    if (request->MatchServiceId(client.GetServiceId()) == 0) isMismatched = true;
    if (request->ExchangeProcessStatus(SCA_RequestFinished) != SCA_RequestPending) {
      isMismatched = true;
    }
    request->Destroy();
    served.fetch_add(1);
  };
  for (int c = 0; c < kConsumers; ++c) {
    threads.emplace_back([&, c] {
      SCA_TikaClient own(&settings_, "own", 80);
      own.SetServiceId(static_cast<unsigned long>(c) % kServices);
      while (!isOver) {
        SCA_TikaClientRequest* request = nullptr;
        SCA_TikaClient* client = nullptr;
        if (queue_.TakeClientRequest(&pool_, &request, &client) != 0) {
          finish(request, *client);
          pool_.AddClient(client, client->GetClientId());
        }
        if (queue_.TakeClientRequest(&own, &request) != 0) finish(request, own);
        isOver = isOver || served + abandoned == kProducers * kEach;
        if (queue_.GetRequestCount() == 0) std::this_thread::yield();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_FALSE(isMismatched);
  EXPECT_EQ(served + abandoned, kProducers * kEach);
  SCA_TikaClientRequest* request = nullptr;
  EXPECT_EQ(queue_.TakeClientRequest(NewClient(99), &request), 0);
  EXPECT_EQ(livingRequests, 0);
  EXPECT_EQ(queue_.GetRequestCount(), 0U);
  EXPECT_EQ(pool_.GetNumOfClients(), 6U);
}

TEST_F(Queue, ClientsThatManyThreadsAddAllGetIntoThePool) {
  constexpr unsigned long kEach = 20000;
  std::atomic<int> waiting{4};
  std::vector<std::thread> threads;
  for (unsigned long t = 0; t < 4; ++t) {
    SCA_TikaClient* const client = NewClient(t);
    threads.emplace_back([this, client, t, &waiting] {
      unsigned long id = 0;
      for (--waiting; waiting > 0;) std::this_thread::yield();
      for (unsigned long i = 0; i < kEach; ++i) {
        if (t % 2 == 0) {
          pool_.AddClient(client, &id);
        } else {
          pool_.AddClient(client, i);
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(pool_.GetNumOfClients(), 4 * kEach);
  unsigned long nodes = 0;
  for (const auto* node = pool_.GetHead(); node != nullptr; node = node->GetNext()) ++nodes;
  EXPECT_EQ(nodes, 4 * kEach);
  EXPECT_EQ(pool_.GetNextItemId(), 2 * kEach);
}

}  // namespace
