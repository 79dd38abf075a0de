#include "PostgresServer.h"

#include "Collector/Store/PostgresSchema.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <libpq-fe.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <latch>
#include <stdexcept>
#include <vector>

namespace kite::test {
namespace {

const std::string programs = KITE_POSTGRES_PROGRAMS "/";

int freePort() {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  ::bind(socket, reinterpret_cast<sockaddr*>(&address), length);
  ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length);
  ::close(socket);
  return ntohs(address.sin_port);
}

/// The server refuses to be root's.
std::vector<std::string> withoutRoot(std::vector<std::string> command) {
  std::vector<std::string> whole{"setpriv", "--pdeathsig", "QUIT"};
  if (::geteuid() == 0)
    whole = {"setpriv",        "--reuid=nobody", "--regid=nogroup",
             "--clear-groups", "--pdeathsig",    "QUIT"};
  whole.insert(whole.end(), command.begin(), command.end());
  return whole;
}

/// Gives the process, and in `output` what reads all that it prints.
pid_t spawn(const std::vector<std::string>& command, FILE*& output) {
  int pipe[2];
  if (::pipe2(pipe, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  std::vector<char*> arguments;
  for (const std::string& argument : command) {
    arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  arguments.push_back(nullptr);
  const pid_t process = ::fork();
  if (process == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::dup2(pipe[1], STDOUT_FILENO);
    ::dup2(pipe[1], STDERR_FILENO);
    ::execvp(arguments[0], arguments.data());
    ::_exit(127);
  }
  ::close(pipe[1]);
  output = ::fdopen(pipe[0], "r");
  return process;
}

/// Calls `line` with each line until the end.
template <class Line>
void readAll(FILE* output, const Line& line) {
  char text[4096];
  while (std::fgets(text, sizeof text, output)) line(std::string(text));
  std::fclose(output);
}

void runToItsEnd(const std::vector<std::string>& command) {
  FILE* output = nullptr;
  const pid_t process = spawn(command, output);
  std::string said;
  readAll(output, [&said](const std::string& line) { said += line; });
  int status = 0;
  ::waitpid(process, &status, 0);
  if (status != 0) throw std::runtime_error(command.back() + " failed: " + said);
}

}  // namespace

PostgresServer::PostgresServer() : _port(freePort()) {
  std::filesystem::permissions(_folder.path(), std::filesystem::perms::all);
  runToItsEnd(withoutRoot({programs + "initdb", "--no-sync", "--auth=trust", "--username=kite",
                           "--encoding=UTF8", "--locale=C.UTF-8", "-D", _folder.path() / "data"}));
  start();
}

PostgresServer::~PostgresServer() { stop(); }

void PostgresServer::start() {
  FILE* output = nullptr;
  _process =
      spawn(withoutRoot({programs + "postgres", "-D", _folder.path() / "data", "-k", _folder.path(),
                         "-p", std::to_string(_port), "-c", "listen_addresses=127.0.0.1", "-c",
                         "fsync=off", "-c", "shared_buffers=32MB", "-c", "lc_messages=C"}),
            output);
  std::latch isReady(1);
  _log = std::thread([output, &isReady] {
    bool wasReady = false;
    readAll(output, [&](const std::string& line) {
      if (wasReady || line.find("ready to accept connections") == std::string::npos) return;
      wasReady = true;
      isReady.count_down();
    });
    if (!wasReady) isReady.count_down();
  });
  isReady.wait();
}

void PostgresServer::stop() {
  if (_process < 0) return;
  ::kill(_process, SIGQUIT);
  ::waitpid(_process, nullptr, 0);
  _process = -1;
  _log.join();
}

void PostgresServer::pause() const { ::kill(_process, SIGSTOP); }
void PostgresServer::resume() const { ::kill(_process, SIGCONT); }

std::string PostgresServer::address(const std::string& database, const std::string& user) const {
  return "postgresql://" + user + "@127.0.0.1:" + std::to_string(_port) + "/" + database;
}

std::string queryPostgres(const std::string& address, const std::string& sql) {
  PGconn* connection = PQconnectdb(address.c_str());
  PGresult* result = PQexec(connection, sql.c_str());
  const auto status = PQresultStatus(result);
  EXPECT_TRUE(status == PGRES_TUPLES_OK || status == PGRES_COMMAND_OK)
      << PQerrorMessage(connection);
  std::string rows;
  for (int row = 0; row < PQntuples(result); ++row) {
    for (int column = 0; column < PQnfields(result); ++column) {
      rows += column == 0 ? "" : " ";
      rows += PQgetisnull(result, row, column) ? "NULL" : PQgetvalue(result, row, column);
    }
    rows += '\n';
  }
  PQclear(result);
  PQfinish(connection);
  return rows;
}

OtherSession::OtherSession(const std::string& address)
    : _connection(PQconnectdb(address.c_str())) {}
OtherSession::~OtherSession() { PQfinish(_connection); }
void OtherSession::run(const char* sql) const { PQclear(PQexec(_connection, sql)); }

PostgresServer& sharedServer() {
  static PostgresServer server;
  return server;
}

PostgresDatabase::PostgresDatabase(Tables tables) {
  static int count = 0;
  _name = "test_" + std::to_string(++count);
  queryPostgres(sharedServer().address("postgres"), "CREATE DATABASE " + _name);
  if (tables == Tables::made) tool::migrate(place(), std::nullopt);
}

PostgresDatabase::~PostgresDatabase() {
  queryPostgres(sharedServer().address("postgres"), "DROP DATABASE " + _name + " WITH (FORCE)");
}

}  // namespace kite::test
