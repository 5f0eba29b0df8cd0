#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "net/client_socket.h"
#include "net/descriptor_wait.h"
#include "net/server_socket.h"
#include "net/socket_address.h"
#include "net/socket_functions.h"
#include "net/udp_socket.h"
#include "support/open_file_limit.h"

namespace {

bool descriptor_open(int fd) {
  return ::fcntl(fd, F_GETFD) != -1;
}

unsigned short bound_port(orm::ormSocket& s) {
  orm::SocketAddress bound;
  EXPECT_TRUE(s.getSocketAddress(&bound));
  return ntohs(bound.get().sin_port);
}

// A loopback port that nobody listens on: bound once, then released.
unsigned short free_port() {
  orm::ServerSocket probe;
  EXPECT_TRUE(probe.listenToClient(0, 1, true));
  return bound_port(probe);
}

TEST(OrmSocket, CreateKeepsOrReplacesDescriptor) {
  orm::TcpSocket s;
  ASSERT_TRUE(s.create(false));
  const int first = s.descriptor();
  ASSERT_TRUE(s.create(false));
  EXPECT_EQ(s.descriptor(), first);
  ASSERT_TRUE(s.create(true));
  EXPECT_NE(s.descriptor(), -1);
  // The first descriptor was closed before the new one was made (which may reuse its number).
  if (s.descriptor() != first) {
    EXPECT_FALSE(descriptor_open(first));
  }
}

TEST(OrmSocket, DestructionClosesTheDescriptorUnlessDetached) {
  int kept = -1;
  int owned = -1;
  {
    orm::ClientSocket detached;
    orm::ClientSocket s;
    ASSERT_TRUE(detached.create(false));
    ASSERT_TRUE(s.create(false));
    kept = detached.detach();
    EXPECT_EQ(detached.descriptor(), -1);
    owned = s.descriptor();
  }
  EXPECT_TRUE(descriptor_open(kept));
  EXPECT_FALSE(descriptor_open(owned));
  ::close(kept);
}

TEST(ClientSocket, ConnectsToALocalListener) {
  orm::ServerSocket server;
  ASSERT_TRUE(server.listenToClient(0, 1, true));
  orm::ClientSocket client;
  EXPECT_FALSE(client.isConnected());
  ASSERT_TRUE(client.connectToServer("127.0.0.1", bound_port(server), 1000));
  EXPECT_TRUE(client.isConnected());
  // Connected sockets are switched back to blocking.
  EXPECT_EQ(::fcntl(client.descriptor(), F_GETFL) & O_NONBLOCK, 0);
  EXPECT_EQ(orm::get_local_ip(client.descriptor()), "127.0.0.1");

  ASSERT_EQ(server.selectRead(2000), 1);
  boost::shared_ptr<orm::ClientSocket> peer = server.acceptClient();
  ASSERT_TRUE(peer);
  EXPECT_TRUE(peer->isConnected());
  ASSERT_EQ(::send(client.descriptor(), "hi", 2, MSG_NOSIGNAL), 2);
  ASSERT_EQ(peer->selectRead(2000), 1);
  char buf[4] = {};
  EXPECT_EQ(::recv(peer->descriptor(), buf, sizeof buf, 0), 2);
  EXPECT_STREQ(buf, "hi");
  // Connecting an already connected socket succeeds (EISCONN).
  EXPECT_TRUE(client.connectToServer("127.0.0.1", bound_port(server), 1000));
}

TEST(ClientSocket, RefusedConnectReturnsFalseAndKeepsDescriptor) {
  const unsigned short port = free_port();
  orm::ClientSocket client;
  EXPECT_FALSE(client.connectToServer("127.0.0.1", port, 1000));
  // Left open for the caller to close.
  EXPECT_NE(client.descriptor(), -1);
  EXPECT_FALSE(client.isConnected());
  client.close();
  EXPECT_FALSE(client.isConnected());
}

TEST(ClientSocket, NullAddressIsRefused) {
  orm::ClientSocket client;
  EXPECT_FALSE(client.connectToServer(static_cast<const char*>(nullptr), 502, 100));
  EXPECT_EQ(client.descriptor(), -1);
}

TEST(ServerSocket, SecondListenerOnTheSamePortFailsAndCloses) {
  orm::ServerSocket first;
  ASSERT_TRUE(first.listenToClient(0, 1, false));
  orm::ServerSocket second;
  EXPECT_FALSE(second.listenToClient(bound_port(first), 1, false));
  EXPECT_EQ(second.descriptor(), -1);
}

TEST(ServerSocket, SelectReadTimesOutWithoutClient) {
  orm::ServerSocket server;
  ASSERT_TRUE(server.listenToClient(0, 1, true));
  EXPECT_EQ(server.selectRead(0), 0);
  EXPECT_EQ(server.selectError(0), 0);
}

// The wait gives select's results for every kind of descriptor it may be handed: ready,
// not ready, numbered past select's limit, and closed (-1 with EBADF, as select fails).
TEST(DescriptorWait, ResultsAreSelectsForAnyDescriptor) {
  open_file_limit files(1100);
  if (!files.allowed()) GTEST_SKIP() << "the hard limit on open files is below 1100";
  ASSERT_TRUE(files.raise());
  int pair[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
  const int high = ::fcntl(pair[0], F_DUPFD, FD_SETSIZE + 6);
  ASSERT_GE(high, FD_SETSIZE);
  const int closed = ::dup(pair[1]);
  ::close(closed);
  struct row {
    const char* what;
    int fd;
    orm::wait_for wait;
    int expected;
  };
  const row before[] = {
      {"nothing to read", pair[0], orm::wait_for::read, 0},
      {"nothing to read, high number", high, orm::wait_for::read, 0},
      {"room to write", pair[0], orm::wait_for::write, 1},
      {"no exception", pair[0], orm::wait_for::error, 0},
      {"closed, read", closed, orm::wait_for::read, -1},
      {"closed, write", closed, orm::wait_for::write, -1},
      {"closed, exception", closed, orm::wait_for::error, -1},
  };
  for (const row& r : before) {
    SCOPED_TRACE(r.what);
    errno = 0;
    EXPECT_EQ(orm::wait_one(r.fd, r.wait, 0), r.expected);
    if (r.expected == -1) {
      EXPECT_EQ(errno, EBADF);
    }
  }
  ASSERT_EQ(::write(pair[1], "x", 1), 1);
  EXPECT_EQ(orm::wait_one(pair[0], orm::wait_for::read, 1000), 1);
  EXPECT_EQ(orm::wait_one(high, orm::wait_for::read, 1000), 1);
  ::close(high);
  ::close(pair[0]);
  ::close(pair[1]);
}

TEST(UdpSocket, DatagramRoundTripReportsSender) {
  orm::UdpSocket receiver;
  ASSERT_TRUE(receiver.create(false));
  ASSERT_TRUE(receiver.bind(0));
  const unsigned short port = bound_port(receiver);
  orm::UdpSocket sender;
  ASSERT_TRUE(sender.create(false));
  ASSERT_TRUE(sender.bind(0));
  EXPECT_EQ(sender.sendTo("127.0.0.1", port, "ping", 4, 0), 4);
  ASSERT_EQ(receiver.selectRead(2000), 1);
  char buf[8] = {};
  orm::SocketAddress from;
  EXPECT_EQ(receiver.recvFrom(buf, sizeof buf, 0, &from), 4);
  EXPECT_EQ(std::string(buf, 4), "ping");
  EXPECT_EQ(orm::ip_to_string(from.get().sin_addr.s_addr), "127.0.0.1");
  EXPECT_EQ(ntohs(from.get().sin_port), bound_port(sender));
}

TEST(ServerSocket, AcceptFailureGivesEmptyPointer) {
  orm::ServerSocket never_listened;
  EXPECT_FALSE(never_listened.acceptClient());
}

}  // namespace
