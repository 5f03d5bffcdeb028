package com.quor.cs;

import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import java.util.Map;
import org.jetbrains.annotations.NotNull;
import org.jetbrains.annotations.Nullable;

/**
 * The desk's configuration of a service, from Connected on ({@link Status#config}): the
 * company, whether the customer is blocked, when ratings are offered and with which options,
 * the reminders, and how messages are left (the native form's fields, or a web page).
 * Immutable. Absent texts are "", absent numbers 0.
 */
public final class Configuration {
  public final @NotNull String companyName;
  /** The desk blocked the customer. */
  public final boolean blocked;
  public final boolean robotSessionNoEvaluation;
  public final boolean humanSessionNoEvaluation;
  /** The stars an agent may be rated with, and what each means. */
  public final @NotNull List<EvaluationOption> evaluationOptions;
  public final int adminTipTime;
  public final @NotNull String adminTipWord;
  public final int userTipTime;
  public final @NotNull String userTipWord;
  public final long evaluationEntryPoint;
  public final long evaluationType;
  public final int reportResolveStatus;
  public final long leaveMessageType;
  public final int disableLocation;
  /** The desk takes messages on this page instead of the native form; "" when none. */
  public final @NotNull String leaveMessageWebUrl;
  /** The native leave-message form's fields, in order. */
  public final @NotNull List<FormField> leaveMessageForm;
  public final @NotNull String announcement;
  public final @NotNull String announcementClickUrl;

  /** One option of an agent's rating: its stars and their description. */
  public static final class EvaluationOption {
    public final int value;
    public final @NotNull String describe;

    EvaluationOption(int value, String describe) {
      this.value = value;
      this.describe = describe;
    }
  }

  /** One field of the leave-message form. */
  public static final class FormField {
    public final @NotNull String title;
    /** The key of the field's value in {@link Service#leaveMessage}'s map. */
    public final @NotNull String name;
    public final @NotNull String type;
    public final @NotNull String defaultText;
    public final boolean required;
    /** The check the value must pass ("mobile", "email" ...); "" for none. */
    public final @NotNull String verification;
    /** The longest value, in characters; 0 for no limit. */
    public final int max;

    FormField(Map<String, Object> field) {
      title = text(field, "title");
      name = text(field, "name");
      type = text(field, "type");
      defaultText = text(field, "defaultText");
      required = flag(field, "required");
      verification = text(field, "verification");
      max = (int) number(field, "max");
    }
  }

  private Configuration(Map<String, Object> json) {
    companyName = text(json, "companyName");
    blocked = flag(json, "isBlack");
    robotSessionNoEvaluation = flag(json, "robotSessionNoEva");
    humanSessionNoEvaluation = flag(json, "humanSessionNoEva");
    List<EvaluationOption> options = new ArrayList<>();
    for (Map<String, Object> item : objects(json, "humanEvaluateItems")) {
      options.add(new EvaluationOption((int) number(item, "value"), text(item, "describe")));
    }
    evaluationOptions = Collections.unmodifiableList(options);
    adminTipTime = (int) number(json, "adminTipTime");
    adminTipWord = text(json, "adminTipWord");
    userTipTime = (int) number(json, "userTipTime");
    userTipWord = text(json, "userTipWord");
    evaluationEntryPoint = number(json, "evaEntryPoint");
    evaluationType = number(json, "evaType");
    reportResolveStatus = (int) number(json, "reportResolveStatus");
    leaveMessageType = number(json, "leaveMessageType");
    disableLocation = (int) number(json, "disableLocation");
    leaveMessageWebUrl = text(json, "leaveMessageWebUrl");
    List<FormField> fields = new ArrayList<>();
    for (Map<String, Object> field : objects(json, "leaveMessageNativeInfo")) {
      fields.add(new FormField(field));
    }
    leaveMessageForm = Collections.unmodifiableList(fields);
    announcement = text(json, "announceMsg");
    announcementClickUrl = text(json, "announceClickUrl");
  }

  // The configuration in the JSON the C API writes; null for null or anything but an object.
  // A service's configuration changes only with a handshake, and every status carries it: the
  // last one read is kept (it is immutable), so the statuses between share one reading.
  @SuppressWarnings("unchecked")
  static @Nullable Configuration fromJson(@Nullable String json) {
    if (json == null) return null;
    Object[] seen = lastRead;
    if (json.equals(seen[0])) return (Configuration) seen[1];
    Object value = Json.read(json);
    Configuration read =
        value instanceof Map ? new Configuration((Map<String, Object>) value) : null;
    lastRead = new Object[] {json, read};
    return read;
  }

  private static volatile Object[] lastRead = {null, null};

  private static String text(Map<String, Object> json, String key) {
    Object value = json.get(key);
    return value instanceof String ? (String) value : "";
  }

  private static boolean flag(Map<String, Object> json, String key) {
    Object value = json.get(key);
    return value instanceof Boolean ? (Boolean) value : number(json, key) != 0;
  }

  private static long number(Map<String, Object> json, String key) {
    Object value = json.get(key);
    return value instanceof Number ? ((Number) value).longValue() : 0;
  }

  @SuppressWarnings("unchecked")
  private static List<Map<String, Object>> objects(Map<String, Object> json, String key) {
    List<Map<String, Object>> found = new ArrayList<>();
    Object value = json.get(key);
    if (!(value instanceof List)) return found;
    for (Object item : (List<Object>) value) {
      if (item instanceof Map) found.add((Map<String, Object>) item);
    }
    return found;
  }
}
