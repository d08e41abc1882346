// The pool of clients and the queue of requests, alone and under many threads.

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "product/SCA_TikaClientList.h"
#include "product/SCA_TikaRequestList.h"
#include "tests/support/ReportCapture.h"

namespace {

using Taken = std::pair<SCA_TikaClientRequest*, SCA_TikaClient*>;

std::atomic<int> livingRequests{0};

class CountedRequest : public SCA_TikaClientRequest {
 public:
  CountedRequest() : SCA_TikaClientRequest("pdf", "Default") { ++livingRequests; }
  ~CountedRequest() override { --livingRequests; }
};

class Queue : public ::testing::Test {
 protected:
  SCA_TikaClient* AddClient(unsigned long serviceId) {
    clients_.push_back(std::make_unique<SCA_TikaClient>(&settings_, "host", 80));
    SCA_TikaClient* const client = clients_.back().get();
    client->SetServiceId(serviceId);
    unsigned long id = 77;
    EXPECT_EQ(pool_.AddClient(client, &id), 1);
    EXPECT_EQ(client->GetClientId(), id);
    return client;
  }
  SCA_TikaClientRequest* AddRequest(const std::vector<unsigned long>& services) {
    requests_.push_back(std::make_unique<CountedRequest>());
    SCA_TikaClientRequest* const request = requests_.back().get();
    for (const unsigned long id : services) request->GetServiceList()->AddItemToTail(id);
    EXPECT_EQ(queue_.AddRequest(request), 1);
    return request;
  }
  void AddAbandonedRequest() {
    AddRequest({1})->SetProcessStatus(SCA_RequestAbandoned);
    static_cast<void>(requests_.back().release());
    requests_.pop_back();
  }
  /// The combined take, as the two that it took; nulls when it found nothing.
  Taken Take() {
    Taken taken{nullptr, nullptr};
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
  EXPECT_EQ(pool_.RemoveClient(one->GetClientId()), 1) << "an absent client is no failure";
  SCA_TikaClientRequest* third = AddRequest({2});
  SCA_TikaClientRequest* fourth = AddRequest({2});
  EXPECT_EQ(Take(), Taken(third, other));
  EXPECT_EQ(Take(), Taken()) << "no client is idle";
  pool_.AddClient(two, two->GetClientId());
  two->SetClientId(one->GetClientId());
  EXPECT_EQ(Take(), Taken(fourth, two));
  EXPECT_EQ(Take(), Taken()) << "who left the pool is in it no more, whatever its id";
  one->SetServiceId(9);
  SCA_TikaClientRequest* request = nullptr;
  EXPECT_EQ(queue_.TakeClientRequest(one, &request), 1);
  EXPECT_EQ(request, foreign);
  EXPECT_EQ(queue_.TakeClientRequest(one, &request), 0);
  EXPECT_EQ(queue_.GetRequestCount(), 1U) << "without services it stays";
}

TEST_F(Queue, AbandonedRequestsAreDeletedOnTheWay) {
  SCA_TikaClient* client = AddClient(1);
  livingRequests = 0;
  AddAbandonedRequest();
  SCA_TikaClientRequest* wanted = AddRequest({1});
  AddAbandonedRequest();
  EXPECT_EQ(Take().first, wanted);
  EXPECT_EQ(livingRequests, 2);
  SCA_TikaClientRequest* request = nullptr;
  client->SetServiceId(7);
  EXPECT_EQ(queue_.TakeClientRequest(client, &request), 0);
  EXPECT_EQ(livingRequests, 1) << "a take that finds nothing deletes too";
  EXPECT_EQ(queue_.GetRequestCount(), 0U);
}

TEST_F(Queue, StatusShowsWhatIsThere) {
  AddClient(1)->SetProcessStatus(5);
  SCA_TikaClientRequest* request = AddRequest({1});
  request->SetStatusCode(9);
  const auto fields = [](const SCA_ConfigObj& object) {
    std::string text;
    for (auto* field = object.GetConfigObj("0")->GetFields().GetHead(); field != nullptr;
         field = field->GetNext()) {
      text += std::string(field->GetName()) + "=" + field->GetValue() + ";";
    }
    return text;
  };
  SCA_ConfigObj clients("c", nullptr);
  SCA_ConfigObj requests("r", nullptr);
  EXPECT_EQ(pool_.GetStatus(&clients), 1);
  EXPECT_EQ(queue_.GetStatus(&requests), 1);
  EXPECT_EQ(fields(clients),
            "Client Id=0;Host Name=host;Port Number=80;Object Valid=Yes;Connect Time=;"
            "Connect Count=0;Process Status=5;Status Code=0;Total Errors=0;Total Files=0;"
            "Sent Data=0 bytes;Recv Data=0 bytes;");
  EXPECT_EQ(fields(requests),
            "Request Id=0;Process Status=10;Status Code=9;File Extension=pdf;Pool Name=Default;"
            "Request Time=;");
  const ReportCapture reports;
  request->SetPoolName("\x01");
  EXPECT_EQ(queue_.GetStatus(&requests), 0);
  EXPECT_EQ(reports.All().back().text,
            "SCA_TikaRequestList::GetStatus: cannot create request status object");
}

TEST_F(Queue, NothingIsLostOrTakenTwiceUnderManyThreads) {
  for (unsigned long i = 0; i < 6; ++i) AddClient(i % 3);
  for (unsigned long i = 0; i < 20; ++i) AddRequest({i % 3});
  std::atomic<bool> isWrong{false};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([this, &isWrong] {
      for (int i = 0; i < 5000; ++i) {
        const auto [request, client] = Take();
        if (request == nullptr) continue;
        // Whoever else had it too would find it served.
        isWrong = isWrong || request->MatchServiceId(client->GetServiceId()) == 0 ||
                  request->ExchangeProcessStatus(SCA_RequestServed) != SCA_RequestPending;
        request->SetProcessStatus(SCA_RequestPending);
        pool_.AddClient(client, client->GetClientId());
        queue_.AddRequest(request);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_FALSE(isWrong);
  EXPECT_EQ(queue_.GetRequestCount(), 20U);
  EXPECT_EQ(pool_.GetNumOfClients(), 6U);
  for (int i = 0; i < 6; ++i) EXPECT_NE(Take(), Taken());
}

}  // namespace
