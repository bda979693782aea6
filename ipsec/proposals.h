// The cipher suites that a tunnel offers to its peer, in the IPsec service's notation.
//
// The configuration describes them in short as "encryption-hash;group", for example "aes256-sha2_512;modp2048", where
// the group, or hash and group, may be left out. Names are passed on as they are given, known to the service or not,
// but for three groups that have another name there and for the hash "sha2", which is no complete name: an ERROR line
// says so and "sha2_256" is offered.
//
// Both functions return a suite or a list of suites separated by commas, and "" for a description that names no
// encryption or has more than two parts. Any thread.
#pragma once

#include <string>

/// The suites for the IKE SA. What the description leaves out is offered in the usual variants: md5 and sha1, and the
/// groups of 1536 and 1024 bits.
std::string buildIkeProposal(const std::string& phase1Text);

/// The suites for the IPsec SA. A hash that is left out is offered as md5 and sha1, a group is not added.
std::string buildEspProposal(const std::string& phase2Text);
