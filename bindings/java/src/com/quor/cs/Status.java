package com.quor.cs;

import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import org.jetbrains.annotations.NotNull;
import org.jetbrains.annotations.Nullable;

/** A state change of a service, or its last state. Immutable. */
public final class Status {
  public final @NotNull State state;
  public final @NotNull Reason reason;
  public final boolean canAskForAgent;
  /** Failed and Ended: the host's or the desk's code. */
  public final long code;
  /** The system's text; "" when none. */
  public final @NotNull String text;
  /** ChoosingGroup: the groups offered. */
  public final @NotNull List<Group> groups;
  /** From Connected on: the desk's configuration as a JSON object; null before. */
  public final @Nullable String configJson;
  /** From Connected on: the desk's configuration, typed; null before. */
  public final @Nullable Configuration config;

  Status(State state, Reason reason, boolean canAskForAgent, long code, String text,
      List<Group> groups, String configJson) {
    this.state = state;
    this.reason = reason;
    this.canAskForAgent = canAskForAgent;
    this.code = code;
    this.text = text;
    this.groups = groups;
    this.configJson = configJson;
    this.config = Configuration.fromJson(configJson);
  }

  // Made by the native layer from the C status; strings arrive as UTF-8 bytes.
  static Status fromNative(int state, int reason, boolean canAskForAgent, long code, byte[] text,
      byte[][] groupIds, byte[][] groupNames, boolean[] online, byte[] configJson) {
    List<Group> groups = new ArrayList<>(groupIds.length);
    for (int i = 0; i < groupIds.length; ++i) {
      groups.add(new Group(Utf8.text(groupIds[i]), Utf8.text(groupNames[i]), online[i]));
    }
    return new Status(State.of(state), Reason.of(reason), canAskForAgent, code,
        Utf8.text(text), Collections.unmodifiableList(groups),
        configJson == null ? null : Utf8.text(configJson));
  }

  @Override
  public String toString() {
    return "Status{" + state + ", " + reason + ", code " + code + ", \"" + text + "\"}";
  }
}
