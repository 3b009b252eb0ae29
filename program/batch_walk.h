// Which sound files the places on the command line hold, and what is passed over in folders.
#ifndef SE_BF_BATCH_WALK_H
#define SE_BF_BATCH_WALK_H

#include <cstddef>
#include <map>
#include <string>
#include <vector>

struct walk_file {
  std::string path;
  std::string name;  // below the folder that was named, or the name of a file that was named
};

struct batch_walk {
  std::vector<walk_file> files;
  std::map<std::string, size_t> no_sound;  // counts of files that are none, by extension
  size_t hidden;                           // names that begin with a dot
  size_t special;                          // pipes, devices, links to nothing
  std::vector<std::string> links;          // to folders
  std::vector<std::string> results;        // folders where results lie
  bool complete;                           // everything could be looked at
};

// Lists the places in the order given and folders by name, with what is in them. Passed over are
// `out_dir` and other folders of results, links to folders, and what the counts above tell. Returns
// false after one line when a place cannot be used, or there is nothing that can be looked at.
bool walk_places(batch_walk *walk, const std::vector<std::string> &places,
                 const std::string &out_dir);

// Reports what was passed over: a line for each reason.
void walk_report(const batch_walk *walk);

#endif  // SE_BF_BATCH_WALK_H
