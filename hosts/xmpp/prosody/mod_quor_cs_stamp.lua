-- Stamps every customer-service message with the server's time in milliseconds and confirms it
-- to its sender with that stamp, so that both ends of a service read their times from one clock.
--
-- A message carries its content in <cs xmlns='urn:quor:customer-service:0' name='...'>. When a
-- client sends one, this module (before the message is routed):
--   * refuses it with <item-not-found/> when it is addressed to a local account that does not
--     exist, so that the sender learns it at once;
--   * sets the payload's `stamp` attribute to the server's time in milliseconds (never smaller
--     than the previous stamp, whatever the wall clock does), replacing any stamp the client set;
--   * sends the sender <message type='headline'><confirmed xmlns='...' id='ID' stamp='MS'/>
--     </message> from the server's own address, where ID is the message's stanza id.
-- The server advertises the namespace as a feature, so that clients can tell it is loaded.
-- It also keeps these messages flowing to inactive clients and lets push notifications through
-- for them alone (below).
local st = require "util.stanza";
local jid = require "util.jid";
local time = require "util.time";
local usermanager = require "core.usermanager";

local xmlns = "urn:quor:customer-service:0";
local last_stamp = 0;

module:add_feature(xmlns);

local function next_stamp()
	local now = math.floor(time.now() * 1000);
	if now < last_stamp then now = last_stamp; end
	last_stamp = now;
	return now;
end

local function stamp_and_confirm(event)
	local origin, stanza = event.origin, event.stanza;
	local payload = stanza:get_child("cs", xmlns);
	if not payload or stanza.attr.type == "error" then return; end

	local node, host = jid.split(stanza.attr.to);
	-- An account with a session exists: the store is asked only about the others.
	if node and prosody.hosts[host] and not prosody.bare_sessions[node .. "@" .. host]
			and not usermanager.user_exists(node, host) then
		origin.send(st.error_reply(stanza, "cancel", "item-not-found", "No such account"));
		return true;
	end

	local stamp = tostring(next_stamp());
	payload.attr.stamp = stamp;
	if stanza.attr.id and origin.full_jid then
		origin.send(st.message({ type = "headline", from = module.host, to = origin.full_jid })
			:tag("confirmed", { xmlns = xmlns, id = stanza.attr.id, stamp = stamp }));
	end
end

module:hook("pre-message/bare", stamp_and_confirm, 10);
module:hook("pre-message/full", stamp_and_confirm, 10);

-- While a client says it is inactive (XEP-0352, mod_csi_simple) the server holds back what can
-- wait; a customer-service message and the confirmation of one's send cannot.
module:hook("csi-is-stanza-important", function (event)
	local stanza = event.stanza;
	if st.is_stanza(stanza) and stanza.name == "message"
			and (stanza:get_child("cs", xmlns) or stanza:get_child("confirmed", xmlns)) then
		event.reason = "customer service";
		return true;
	end
end, 10);

-- A push notification (XEP-0357, mod_cloud_notify) wakes a phone for what someone else wrote to
-- it: a customer-service message from another account. Confirmations, the account's own
-- messages (carbons), presence and everything else wake nobody.
module:hook("cloud_notify/push", function (event)
	local stanza = event.original_stanza;
	if st.is_stanza(stanza) and stanza.name == "message" and stanza.attr.type ~= "error"
			and stanza:get_child("cs", xmlns)
			and jid.bare(stanza.attr.from or "") ~= event.username .. "@" .. module.host then
		return;
	end
	event.reason = "not a customer-service message from another account";
	return true;
end, 10);
