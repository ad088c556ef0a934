#pragma once

#include <string>

void signIn(bool isPaying);
void play(const std::string& song, double seconds, bool isFromAlbum);
void buy(const std::string& name, double price);
void signOut();
