package com.quor.cs;

/** A rating of the agent's service: stars and what goes with them. */
public final class AgentRating {
  final int stars;
  String dialogId;
  String suggestion;
  long resolved;
  String tags;
  String extraJson;

  public AgentRating(int stars) {
    this.stars = stars;
  }

  /** The dialog rated; by default the desk's last rating request. */
  public AgentRating dialogId(String dialogId) {
    this.dialogId = dialogId;
    return this;
  }

  public AgentRating suggestion(String suggestion) {
    this.suggestion = suggestion;
    return this;
  }

  /** The resolved status the desk's configuration defines (0: not said). */
  public AgentRating resolved(long resolved) {
    this.resolved = resolved;
    return this;
  }

  /** Tags, or an extra JSON object merged into the rating: the tagged rating goes out. */
  public AgentRating tags(String tags) {
    this.tags = tags;
    return this;
  }

  public AgentRating extraJson(String extraJson) {
    this.extraJson = extraJson;
    return this;
  }
}
