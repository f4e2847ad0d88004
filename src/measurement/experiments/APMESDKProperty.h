// APMESDKProperty: what an SDK tells the experiment client about itself when it registers,
// and the delegate through which the client reports to it.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "platform/Types.h"

class APMEClient;

// Hears about one SDK's snapshots. Called on the experiment serial queue; must not call back
// into the manager synchronously from there.
class APMEClientDelegate {
 public:
  virtual ~APMEClientDelegate() = default;
  // A new snapshot of the SDK is stored as pending.
  virtual void clientDidReceiveNewSnapshot(APMEClient& client) = 0;
  // A fetch failed (a bad status, no answer, an answer that does not inflate or parse).
  virtual void clientDidReceiveFetchError(APMEClient& client, const platform::Error& error) = 0;
  // Whether the next fetch should ask for this SDK; an SDK without a delegate is asked for.
  virtual bool shouldFetchExperimentsForClient(APMEClient& client) = 0;
};

struct APMESDKProperty {
  std::string name;
  std::int64_t version = 0;
  std::string appID;
  std::string diversionKey;
  std::map<std::string, std::string> customProperties;
  // Held weakly: an SDK that goes away stops hearing.
  std::weak_ptr<APMEClientDelegate> delegate;
};
