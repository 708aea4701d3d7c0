// Conversations with a scripted server, as data. A file of conversations/ holds many of a kind:
//
//   == title
//   set NAME VALUE        a property of the mailer or a part of the mail; conversation.cpp lists
//   them field NAME VALUE      a header field of the mail succeeds METHOD ARG   calls the method,
//   with this outcome; so does `fails` log TEXT              in the log of the last call, behind
//   the texts of the lines before unlogged TEXT         nowhere in it last TEXT             the
//   last line that the server heard S: 220 ready          a step of the server, see
//   scripted_smtp_server.h; what stands in S: lines S: 220 there            that follow each other
//   goes out at once hello from ok         steps that phrases.txt has a word for new connection
//   what follows is said on the next one
//
// Lines before the first title are part of each conversation. \r, \n, \\ and \xHH stand for bytes,
// {port} for the server's, {data} for the folder; a line that begins with '#' is a comment.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mail/smtp/kv_mail_man.h"
#include "tests/support/scripted_smtp_server.h"

namespace kelvado {

using test_support::ScriptedSmtpServer;
using testing::HasSubstr;
using testing::Not;

struct Conversation {
  std::string title;
  std::vector<std::string> actions;                   // what the client does, and what is expected
  std::vector<std::vector<std::string>> connections;  // the steps of the server
};

std::vector<Conversation> readConversations(const std::string& text);

// Of a file in conversations/, without its extension; at least one.
std::vector<Conversation> conversationsOf(const std::string& name);

// For ScriptedSmtpServer, one a connection.
std::vector<std::string> scriptsOf(const Conversation& conversation);

// What each conversation begins with, unless it sets that itself.
void setUp(KvMailMan& mailMan, KvEmail& email, const ScriptedSmtpServer& server,
           const Conversation& conversation = {});

// After set-up and before the actions.
using Begin = std::function<void(KvMailMan&, KvEmail&)>;

// The password "secret" is not in the log, whatever is said.
ScriptedSmtpServer::Record converse(const Conversation& conversation, const Begin& begin = {},
                                    const test_support::Handshake& handshake = {});

}  // namespace kelvado
