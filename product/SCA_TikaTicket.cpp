#include "product/SCA_TikaTicket.h"

#include <cassert>
#include <cstring>

#include "client/SCA_TikaClient.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_Text.h"

SCA_TikaVerdict SCA_TikaVerdict::Make(SCA_TikaOutcome outcome, unsigned long code,
                                      const char* server, const char* cause) {
  SCA_TikaVerdict verdict;
  verdict.outcome = outcome;
  verdict.code = code;
  if (server != nullptr) verdict.Tell(server).Tell(": ");
  return verdict.Tell(cause);
}

SCA_TikaVerdict SCA_TikaVerdict::Make(SCA_TikaOutcome outcome, unsigned long code,
                                      const char* server) {
  return Make(outcome, code, server, SCA_ErrorText(code));
}

SCA_TikaVerdict& SCA_TikaVerdict::Tell(const char* text) {
  const std::size_t length = std::strlen(cause);
  SCA_CopyText(cause + length, sizeof cause - length, text, SCA_TextFit::Cut);
  return *this;
}

SCA_TikaStage SCA_TikaNextStage(SCA_TikaStage stage, SCA_TikaMove move) {
  using From = SCA_TikaStage;
  using Move = SCA_TikaMove;
  using To = SCA_TikaStage;
  constexpr struct {
    From from;
    Move move;
    To to;
  } kMoves[] = {
      {From::Queued, Move::Serve, To::Served},       //
      {From::Retrying, Move::Serve, To::Served},     //
      {From::Served, Move::PassLimit, To::Overdue},  //
      {From::Served, Move::EndTry, To::Ending},      //
      {From::Overdue, Move::EndTry, To::Ending},     //
      {From::Retrying, Move::TakeBack, To::Ending},  //
      {From::Queued, Move::TryAgain, To::Retrying},  // its server is a suspect's alone
      {From::Ending, Move::TryAgain, To::Retrying},  //
      {From::Queued, Move::End, To::Ended},          // no worker has seen it
      {From::Retrying, Move::End, To::Ended},        // a worker has found it abandoned
      {From::Ending, Move::End, To::Ended},
  };
  for (const auto& row : kMoves) {
    if (row.from == stage && row.move == move) return row.to;
  }
  assert(false && "a request at this stage cannot move so");
  return stage;
}

SCA_TikaTicket::SCA_TikaTicket(SCA_TikaDispatch* owner, SCA_TikaExtractRequest* ofRequest)
    : dispatch(owner), request(ofRequest) {
  request->ticket_.Set(this);
}

SCA_TikaTicket::~SCA_TikaTicket() {
  request->ticket_.Set(nullptr);
}

void SCA_TikaTicket::NoteServer(const char* name) {
  SCA_CopyText(request->serverName_, name, SCA_TextFit::Cut);
}

void SCA_TikaTicket::NoteReply(const SCA_TikaClient& client, unsigned long long textLength) {
  request->serverVersion_ = client.GetServerVersion();
  request->fileSize_ = client.GetLastFileSize();
  request->refusalCode_ = client.GetRefusalCode();
  request->ignoredOptions_ = client.GetIgnoredOptions();
  request->textLength_ = textLength;
}

void SCA_TikaTicket::NoteOutcome(const SCA_TikaVerdict& verdict) {
  request->outcome_ = verdict.outcome;
  request->SetStatusCode(verdict.code);
  SCA_CopyText(request->cause_, verdict.cause, SCA_TextFit::Cut);
  request->tries_ = tries;
  if (!beganAt) return;
  request->durationMs_ = static_cast<unsigned long long>(
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - *beganAt).count());
}
