// The application. It sends what plan.json plans, or does not compile.
#include "application.h"

#include <chrono>

#include "player/bought.h"
#include "player/signed_out.h"
#include "player/song_played.h"
#include "player/super_properties.h"

void signIn(bool isPaying) {
  using Plan = player::SuperProperties::Plan;
  player::setSuperProperties(player::SuperProperties{.plan = isPaying ? Plan::pro : Plan::free});
}

void play(const std::string& song, double seconds, bool isFromAlbum) {
  using Source = player::SongPlayed::Source;
  player::track(player::SongPlayed{
      .song = song, .seconds = seconds, .source = isFromAlbum ? Source::album : Source::search});
}

void buy(const std::string& name, double price) {
  player::track(player::Bought{.items = {player::Bought::Items{.name = name, .price = price}},
                               .paid = std::chrono::system_clock::now()});
}

void signOut() {
  player::track(player::SignedOut{});
}
