/// The serving side of the bus layer: owns one well-known name and one object path. All callbacks
/// run on the thread that called start(), and the connection is used from that thread only.
#pragma once

#include <uv.h>

#include <memory>
#include <string>

#include "dbus_wrap/DConnection.h"
#include "dbus_wrap/DMessage.h"

namespace quillon {

class Burst;

class DServer : public DConnection {
 public:
  /// A server on the default loop.
  DServer(const char* name, const char* path);
  DServer(const char* name, const char* path, uv_loop_t* loop);

  DServer(const DServer&) = delete;
  DServer& operator=(const DServer&) = delete;

  // The virtual operations, in slot order.

  virtual ~DServer();

  /// Called for every method call before it is wrapped. True means that the override has taken the
  /// raw message over, its release included, and that no reply is made here.
  virtual bool filterMethodCall(const char* member, DBusMessage* rawMessage);

  /// Called for every method call that the filter left. `reply` is the method return, in write
  /// mode; the handler fills it and sends it with send(). The result is ignored.
  virtual bool onMethodCall(const char* member, const std::shared_ptr<DMessage>& request,
                            const std::shared_ptr<DMessage>& reply) = 0;

  /// Called for every signal, in read mode. The result is ignored.
  virtual bool onSignalReceived(const char* member, const std::shared_ptr<DMessage>& signal) = 0;

  /// Tells the gateway watchdog that `name` lives and will say so again within `seconds`.
  /// Nothing calls this yet.
  virtual void feedWatchDog(const char* name, int seconds);

  /// Connects and takes the name. Returns 0, or -1 when there is no daemon or the name is not
  /// granted; the connection is then closed, because a name request that waits in the daemon's
  /// queue would be granted when the present owner goes.
  [[nodiscard]] int prepare();

  /// Asks the daemon for the messages that match `rule`; a null rule does nothing. Its refusal is
  /// not noticed. After prepare().
  void addMatchRule(const char* rule);
  void addMatchRule(const std::string& rule) { addMatchRule(rule.c_str()); }
  /// Takes such a rule back. Nothing calls this yet.
  void removeMatchRule(const char* rule);
  void removeMatchRule(const std::string& rule) { removeMatchRule(rule.c_str()); }

  /// Whether start() runs the loop and stop() stops it.
  void setRunLoop(bool flag) { runLoop = flag; }

  /// Serves from now on. Blocks until stop() when the loop is run here. Returns 0.
  int start();

  /// Ends serving; on the thread of start().
  void stop();

  /// Sends a message, as a rule a method return. The outcome is ignored.
  void send(const std::shared_ptr<DMessage>& message);

  /// Sends the signal `signalName` with `text` as its argument, without one when it is empty.
  /// Returns false, with a warning, when it could not be sent.
  bool sendSignal(const char* signalName, const std::string& text);

  /// Sends a ready signal. Returns false, with a warning, when it could not be sent.
  bool sendSignal(const std::shared_ptr<DMessage>& message);

  /// Prints the number of a signal, as its handler. Nothing installs this yet.
  static void signalHandler(int number);

 private:
  static void uvIdleCallback(uv_idle_t* handle);
  static void onDescriptorReady(uv_poll_t* handle, int status, int events);
  void startIdle();
  void takeTurn();
  void watchDescriptor();
  bool hasUnread() const;
  bool sendNow(const std::shared_ptr<DMessage>& message);
  void noteUse();
  void popMessages();
  void dispatch(DBusMessage* raw);
  void dispatchMethodCall(DBusMessage* raw);

  std::string name;
  std::string path;
  ConnectionPtr connection;
  uv_loop_t* loop;
  // On the heap because libuv lets go of a handle only in a later turn of the loop; their data is
  // the server. The idle handle runs while there is something to do; `watch`, which is there from
  // start() to stop(), wakes it.
  std::unique_ptr<uv_idle_t> idle;
  std::unique_ptr<uv_poll_t> watch;
  const std::unique_ptr<Burst> burst;  // of what was popped
  int watchedEvents = 0;
  bool ready = false;  // the descriptor's event has come and no turn has followed yet
  bool runLoop = false;
};

}  // namespace quillon
