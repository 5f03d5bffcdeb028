package com.quor.cs;

/** An agent group the desk offers. */
public final class Group {
  public final String id;
  /** "" when the desk gave none. */
  public final String name;
  public final boolean online;

  Group(String id, String name, boolean online) {
    this.id = id;
    this.name = name;
    this.online = online;
  }

  @Override
  public String toString() {
    return "Group{" + id + ", " + name + (online ? ", online}" : "}");
  }
}
