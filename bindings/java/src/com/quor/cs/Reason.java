package com.quor.cs;

/** Why a service failed, ended or went back to the robot. */
public enum Reason {
  NONE,
  CONNECTION_FAILED,
  HANDSHAKE_REFUSED,
  TIMEOUT,
  DESK_ENDED,
  BLOCKED,
  NO_AGENT_AVAILABLE,
  STOPPED_BY_APP
}
